#define LOG_TAG "SonorelStores"

#include "WriteRetry.h"

#include <log/log.h>
#include <qelto/StoreWrites.h>

#include <algorithm>
#include <system_error>
#include <thread>
#include <vector>

namespace android {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// How long the thread rests between two tries, doubling from the first to the last.
constexpr milliseconds kFirstRest{50};
constexpr milliseconds kLongestRest{1000};
// How long one try of the thread waits for the file, and with it a caller of that store.
constexpr milliseconds kPatience{20};

// Never destroyed: the thread may outlive the static objects.
struct Process {
    Mutex lock;
    std::vector<std::weak_ptr<WriteRetry>> stores GUARDED_BY(lock);
    bool isRunning GUARDED_BY(lock) = false;
    // Something was kept since the thread last looked.
    bool isAsked GUARDED_BY(lock) = false;
};

Process& process() {
    static auto& one = *new Process;
    return one;
}

}  // namespace

std::shared_ptr<WriteRetry> WriteRetry::add(Keeper* keeper) {
    auto store = std::make_shared<WriteRetry>(keeper);
    Process& all = process();
    Mutex::Autolock lock(all.lock);
    const auto isGone = [](const std::weak_ptr<WriteRetry>& known) { return known.expired(); };
    all.stores.erase(std::remove_if(all.stores.begin(), all.stores.end(), isGone),
                     all.stores.end());
    all.stores.push_back(store);
    return store;
}

void WriteRetry::end() {
    Mutex::Autolock lock(mLock);
    mKeeper = nullptr;
}

size_t WriteRetry::storeKept(milliseconds patience, bool isLast) {
    Mutex::Autolock lock(mLock);
    return mKeeper == nullptr ? 0 : mKeeper->storeKept(patience, isLast);
}

size_t WriteRetry::storeAll(milliseconds within, bool isLast) {
    std::vector<std::shared_ptr<WriteRetry>> stores;
    {
        Process& all = process();
        Mutex::Autolock lock(all.lock);
        for (const std::weak_ptr<WriteRetry>& known : all.stores)
            stores.push_back(known.lock());
    }
    const auto deadline = steady_clock::now() + within;
    size_t left = 0;
    for (const std::shared_ptr<WriteRetry>& store : stores) {
        if (store == nullptr) continue;
        const auto rest = std::chrono::duration_cast<milliseconds>(deadline - steady_clock::now());
        left += store->storeKept(std::max(isLast ? rest : within, milliseconds(0)), isLast);
    }
    return left;
}

void WriteRetry::wake() {
    Process& all = process();
    Mutex::Autolock lock(all.lock);
    all.isAsked = true;
    if (all.isRunning) return;
    try {
        std::thread(run).detach();
        all.isRunning = true;
    } catch (const std::system_error& error) {
        // The next write to the store tries what is kept as well.
        ALOGW("no thread to store what is kept: %s", error.what());
    }
}

void WriteRetry::run() {
    Process& all = process();
    milliseconds rest = kFirstRest;
    for (;;) {
        std::this_thread::sleep_for(rest);
        rest = std::min(2 * rest, kLongestRest);
        {
            Mutex::Autolock lock(all.lock);
            all.isAsked = false;
        }
        const size_t left = storeAll(kPatience, false);
        Mutex::Autolock lock(all.lock);
        if (left == 0 && !all.isAsked) {
            all.isRunning = false;
            return;
        }
    }
}

size_t finishStoreWrites(milliseconds within) {
    return WriteRetry::storeAll(within, true);
}

}  // namespace android
