// The worker thread "MetaAudioThread": a tick to client 3 every 8 ms until it is asked to exit.
#pragma once

#include <cstdint>

#include <utils/RefBase.h>
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

    // Sends one tick of `service`, when its client 3 is registered. Does not take the client lock,
    // so a client that thinks about a two-way event does not hold up the ticks.
    static void onWork(const SonorelService& service);

private:
    bool threadLoop() override;

    // The service owns this object, so it is held only while the thread runs.
    const wp<SonorelService> mService;
};

}  // namespace android
