// The thread that stores what was kept while a file was locked.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>

#include <utils/Mutex.h>

namespace android {

// One store as the retry thread sees it. Made with the store and ended before the store goes.
class WriteRetry {
public:
    // What a store does when it is asked to store what it kept, waiting for a locked file at most
    // so long. Takes the store's lock. `isLast` asks for a log line for each that it could not.
    // Returns how many are left.
    class Keeper {
    public:
        virtual size_t storeKept(std::chrono::milliseconds patience, bool isLast) = 0;

    protected:
        virtual ~Keeper() = default;
    };

    explicit WriteRetry(Keeper* keeper) : mKeeper(keeper) {}

    // Makes it known to the process.
    static std::shared_ptr<WriteRetry> add(Keeper* keeper);
    // Afterwards the keeper is not called any more. Waits for a call that is under way: the store's
    // lock must not be held.
    void end() EXCLUDES(mLock);

    // Something was kept: the thread runs until nothing is. May be called under a store's lock.
    static void wake();

private:
    friend size_t finishStoreWrites(std::chrono::milliseconds within);
    size_t storeKept(std::chrono::milliseconds patience, bool isLast) EXCLUDES(mLock);
    static size_t storeAll(std::chrono::milliseconds within, bool isLast);
    static void run();

    Mutex mLock;
    Keeper* mKeeper GUARDED_BY(mLock);
};

}  // namespace android
