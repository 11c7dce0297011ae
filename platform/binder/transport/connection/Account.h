#pragma once

#include <sys/types.h>
#include <utils/Mutex.h>
#include <utils/Timers.h>

#include <array>
#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace android::transport {

/** What processes of other users can make this process hold. */
enum class Resource {
    CONNECTIONS,  // that they opened
    BYTES,        // of their frames that are being received or wait, and of frames that wait for
                  // them to read
    DESCRIPTORS,  // that they sent and nobody has taken yet
    REFERENCES,   // on objects of this process, proxies of theirs, objects in frames that wait
    CALLS,        // of strangers that run on threads of the pool; others need not be counted
};
constexpr size_t kResources = 5;

/**
 * How much of a resource there is. Trusted users (root, the runtime folder's owner, those that the
 * settings name) share all of it; everybody else together holds at most `strangers` of it, and one
 * of them `stranger`. So strangers never take what the trusted need, nor one stranger what another
 * needs.
 */
struct Limit {
    uint64_t all;
    uint64_t strangers;
    uint64_t stranger;
};
using Limits = std::array<Limit, kResources>;

/** The limits of this process, which the number of descriptors that it may open decides. */
[[nodiscard]] Limits usualLimits();

class Accounts;

/** What the processes of one user hold in this process. Thread-safe, without a lock. */
class Account {
public:
    Account(Accounts& accounts, uid_t user, bool trusted)
            : uid(user), isTrusted(trusted), mAccounts(accounts) {}
    Account(const Account&) = delete;
    Account& operator=(const Account&) = delete;
    ~Account() = default;

    const uid_t uid;
    const bool isTrusted;

    /** False when the limit is reached; then nothing is taken. Logs that, at most once a second. */
    [[nodiscard]] bool take(Resource resource, uint64_t amount);
    /** As take, without a log line: for what then waits instead of failing. */
    [[nodiscard]] bool tryTake(Resource resource, uint64_t amount);
    /** Counts in any case. */
    void add(Resource resource, uint64_t amount);
    void giveBack(Resource resource, uint64_t amount);
    /** True when a stranger holds all that it may. */
    [[nodiscard]] bool isFull(Resource resource) const;

    /**
     * Once a second at most true: when the caller may log a line about this user. `outLeftOut` is
     * how many lines have been left out since the last one.
     */
    [[nodiscard]] bool mayLog(uint64_t* outLeftOut);

    /** Refuses the connections of a stranger for a short time, after it broke the protocol. */
    void shutOut();
    [[nodiscard]] bool isShutOut() const;

private:
    friend class Accounts;
    using Used = std::array<std::atomic<uint64_t>, kResources>;

    Accounts& mAccounts;
    Used mUsed = {};
    std::atomic<nsecs_t> mLastLog{0};
    std::atomic<uint64_t> mLeftOut{0};
    std::atomic<nsecs_t> mShutOutUntil{0};
};

/** The accounts of all users. An account stays once made. Thread-safe. */
class Accounts {
public:
    /** `trusted` beside root. */
    Accounts(const Limits& limits, std::vector<uid_t> trusted);
    Accounts(const Accounts&) = delete;
    Accounts& operator=(const Accounts&) = delete;
    ~Accounts() = default;

    [[nodiscard]] Account& of(uid_t uid) EXCLUDES(mLock);
    [[nodiscard]] bool isTrusted(uid_t uid) const;

    /** Sets how many threads there are to run calls, of which strangers get at most half. */
    void setThreads(uint64_t count);

    /** The limits and who holds how much of them, a line each. */
    [[nodiscard]] std::string report() const EXCLUDES(mLock);

private:
    friend class Account;

    struct AtomicLimit {
        std::atomic<uint64_t> all{0};
        std::atomic<uint64_t> strangers{0};
        std::atomic<uint64_t> stranger{0};
    };
    void setLimit(Resource resource, const Limit& limit);

    const std::vector<uid_t> mTrusted;
    std::array<AtomicLimit, kResources> mLimits;
    Account::Used mAll = {};
    Account::Used mStrangers = {};

    mutable Mutex mLock;
    std::map<uid_t, std::unique_ptr<Account>> mAccounts GUARDED_BY(mLock);
};

/** Parts of one account that are given back with this object; CALLS are counted otherwise. */
class Charge {
public:
    Charge() = default;
    Charge(const Charge&) = delete;
    Charge& operator=(const Charge&) = delete;
    Charge(Charge&& other) noexcept
            : mAccount(std::exchange(other.mAccount, nullptr)), mAmounts(other.mAmounts) {}
    Charge& operator=(Charge&& other) noexcept {
        std::swap(mAccount, other.mAccount);
        std::swap(mAmounts, other.mAmounts);
        return *this;
    }
    ~Charge() {
        if (mAccount != nullptr) giveBack();
    }

    /** Adds to what is held; false, with a log line, when the limit is reached. */
    [[nodiscard]] bool take(Account& account, Resource resource, uint32_t amount) {
        if (!account.take(resource, amount)) return false;
        hold(account, resource, amount);
        return true;
    }
    /** Counts and holds in any case. */
    void add(Account& account, Resource resource, uint32_t amount) {
        account.add(resource, amount);
        hold(account, resource, amount);
    }
    /** Gives a part of what is held back. */
    void giveBack(Resource resource, uint32_t amount);
    /** Moves a part of what is held to `other`. */
    void moveTo(Charge* other, Resource resource, uint32_t amount);

private:
    void hold(Account& account, Resource resource, uint32_t amount) {
        mAccount = &account;
        mAmounts[static_cast<size_t>(resource)] += amount;
    }
    void giveBack();

    Account* mAccount = nullptr;
    std::array<uint32_t, kResources - 1> mAmounts = {};
};

}  // namespace android::transport
