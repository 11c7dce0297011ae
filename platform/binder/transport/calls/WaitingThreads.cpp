#include "WaitingThreads.h"

#include <utils/Mutex.h>

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

namespace android::transport {

struct WaitingThreads::State {
    // Numbers are taken from here, as a system call for each would cost more than all the rest.
    uint64_t random[32];
    size_t left = 0;

    Mutex lock;
    uint64_t thread GUARDED_BY(lock) = 0;         // changes with each outermost wait
    Connection* link GUARDED_BY(lock) = nullptr;  // of the innermost wait; null outside of any
    std::deque<Delivery> deliveries GUARDED_BY(lock);
};

namespace {

/** All threads that ever waited and have not ended. Never destroyed. */
struct Registry {
    Mutex lock;
    std::vector<std::shared_ptr<WaitingThreads::State>> states GUARDED_BY(lock);

    static Registry& get() {
        static Registry* const sRegistry = new Registry();
        return *sRegistry;
    }
};

/** This thread's entry in the registry. */
class Entry {
public:
    Entry() : mState(std::make_shared<WaitingThreads::State>()) {
        Registry& registry = Registry::get();
        Mutex::Autolock lock(registry.lock);
        registry.states.push_back(mState);
    }
    ~Entry() {
        Registry& registry = Registry::get();
        Mutex::Autolock lock(registry.lock);
        auto& states = registry.states;
        states.erase(std::find(states.begin(), states.end(), mState));
    }
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;

    WaitingThreads::State& state() { return *mState; }

private:
    const std::shared_ptr<WaitingThreads::State> mState;
};

WaitingThreads::State& ownState() {
    static thread_local Entry sEntry;
    return sEntry.state();
}

uint64_t nextNumber(WaitingThreads::State* state) {
    if (state->left == 0) {
        fillRandom(state->random, sizeof(state->random));
        state->left = std::size(state->random);
    }
    return state->random[--state->left];
}

}  // namespace

WaitingThreads::Scope::Scope(Connection& link) : mState(ownState()) {
    Mutex::Autolock lock(mState.lock);
    mOuter = std::exchange(mState.link, &link);
    if (mOuter == nullptr) mState.thread = nextNumber(&mState);
}

uint64_t WaitingThreads::Scope::thread() const {
    Mutex::Autolock lock(mState.lock);
    return mState.thread;
}

bool WaitingThreads::Scope::take(Delivery* outDelivery) {
    Mutex::Autolock lock(mState.lock);
    if (mState.deliveries.empty()) return false;
    *outDelivery = std::move(mState.deliveries.front());
    mState.deliveries.pop_front();
    return true;
}

std::deque<Delivery> WaitingThreads::Scope::finish() {
    std::deque<Delivery> late;
    Mutex::Autolock lock(mState.lock);
    mState.link = mOuter;
    if (mOuter == nullptr) late.swap(mState.deliveries);
    return late;
}

bool WaitingThreads::deliver(uint64_t thread, Delivery* delivery) {
    std::vector<std::shared_ptr<State>> states;
    {
        Registry& registry = Registry::get();
        Mutex::Autolock lock(registry.lock);
        states = registry.states;
    }
    for (const std::shared_ptr<State>& state : states) {
        Mutex::Autolock lock(state->lock);
        if (state->link == nullptr || state->thread != thread) continue;
        state->deliveries.push_back(std::move(*delivery));
        // The thread parks before it looks for deliveries, so this finds it parked or looking.
        state->link->interrupt();
        return true;
    }
    return false;
}

}  // namespace android::transport
