#pragma once

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "process/ProcessTest.h"

namespace sonorel::test {

// Several processes that want different things of one service at once.
class ContentionRounds : public ProcessTest {
protected:
    // A product with every feature, or one whose loudspeaker takes no part.
    void startProduct(bool speaker);

    // Callers switch the tick and head tracking on and off, `calls` times each (or for -`calls`
    // seconds). All of them return, and the tick does what was asked for last.
    void switchTicks(int rounds, int callers, int calls);
    // After switchTicks(): 20 ms after the tick was switched off the last one has come.
    void expectSilenceAfterDisable();
    // Callers set one setting each, deferred and at once: what each set last is read and stored.
    void chooseSettings(int rounds);
    // A user switch beside a headset change, while another program locks the database:
    // settings go to the device that is live then.
    void switchUserAndDevice(int rounds);
    // Renderers are killed and replaced while the audio server restarts: each gets everything.
    void replaceRenderers(int rounds);

private:
    void expectTick(bool on);
    bool hasWorker() const;
    // What the service has stored in a row of process_peer's role "choose".
    int32_t stored(int row);

    android::sp<RecordingClient> mTicker;
};

// Prints the seed and returns an engine that begins with it; SONOREL_SEED gives another.
std::mt19937 seeded(const char* what);

}  // namespace sonorel::test
