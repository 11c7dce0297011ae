// The worker thread "MetaAudioThread": a tick to client 3 every 8 ms until it is asked to exit.
#pragma once

#include <cstdint>

#include <utils/StrongPointer.h>
#include <utils/Thread.h>

namespace android {

class SonorelService;

class MetaAudioThread : public Thread {
public:
    explicit MetaAudioThread(const sp<SonorelService>& service);
    ~MetaAudioThread() override;
    MetaAudioThread(const MetaAudioThread&) = delete;
    MetaAudioThread& operator=(const MetaAudioThread&) = delete;

    // Asks for the end and does not wait for it.
    void requestExit() override;
    // True between a request to exit and the thread's next start.
    bool isExiting() const { return exitPending(); }

    // Sends one tick, when client 3 is registered. Does not take the client lock, so a client that
    // thinks about a two-way event does not hold up the ticks.
    void onWork();

private:
    bool threadLoop() override;

    // A running thread keeps the service alive.
    const sp<SonorelService> mService;
};

}  // namespace android
