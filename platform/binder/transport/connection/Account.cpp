#define LOG_TAG "BinderTransport"

#include "Account.h"

#include <inttypes.h>
#include <log/log.h>
#include <stdio.h>
#include <sys/resource.h>

#include <algorithm>

namespace android::transport {

namespace {

constexpr nsecs_t kLogInterval = s2ns(1);
constexpr nsecs_t kShutOut = ms2ns(100);
constexpr const char* kNames[kResources] = {"connections", "bytes", "descriptors", "references",
                                            "calls"};

size_t indexOf(Resource resource) {
    return static_cast<size_t>(resource);
}

}  // namespace

Limits usualLimits() {
    rlimit open = {};
    uint64_t descriptors = 1024;
    if (getrlimit(RLIMIT_NOFILE, &open) == 0) {
        descriptors = std::clamp<uint64_t>(open.rlim_cur, 64, 65536);
    }
    constexpr uint64_t kMiB = uint64_t{1024} * 1024;
    const auto share = [&](uint64_t part, uint64_t most) {
        return std::min(descriptors / part, most);
    };
    // One stranger may have one transaction of the largest size each way, and costs at most 4 MB in
    // all. The count of references of one object must stay below 2^20, where libutils aborts.
    return {{{descriptors / 2, share(4, 1024), share(16, 64)},
             {64 * kMiB, 16 * kMiB, 2 * kMiB},
             {descriptors / 4, share(8, 512), share(16, 64)},
             {uint64_t{1} << 19, uint64_t{1} << 15, uint64_t{1} << 11},
             {16, 8, 4}}};
}

bool Account::tryTake(Resource resource, uint64_t amount) {
    const size_t i = indexOf(resource);
    const Accounts::AtomicLimit& limit = mAccounts.mLimits[i];
    // Counts first: of two that take the last piece at once at most one may have it.
    add(resource, amount);
    if (mAccounts.mAll[i] <= limit.all &&
        (isTrusted || (mAccounts.mStrangers[i] <= limit.strangers && mUsed[i] <= limit.stranger))) {
        return true;
    }
    giveBack(resource, amount);
    return false;
}

bool Account::isFull(Resource resource) const {
    const size_t i = indexOf(resource);
    const Accounts::AtomicLimit& limit = mAccounts.mLimits[i];
    return !isTrusted && (mUsed[i] >= limit.stranger || mAccounts.mStrangers[i] >= limit.strangers);
}

bool Account::take(Resource resource, uint64_t amount) {
    if (tryTake(resource, amount)) return true;
    uint64_t leftOut = 0;
    if (mayLog(&leftOut)) {
        ALOGW("uid %u holds all the %s that it may have; %" PRIu64
              " refusals and faults since the last line",
              uid, kNames[indexOf(resource)], leftOut);
    }
    return false;
}

void Account::add(Resource resource, uint64_t amount) {
    const size_t i = indexOf(resource);
    mUsed[i].fetch_add(amount, std::memory_order_relaxed);
    mAccounts.mAll[i].fetch_add(amount, std::memory_order_relaxed);
    if (!isTrusted) mAccounts.mStrangers[i].fetch_add(amount, std::memory_order_relaxed);
}

void Account::giveBack(Resource resource, uint64_t amount) {
    const size_t i = indexOf(resource);
    mUsed[i].fetch_sub(amount, std::memory_order_relaxed);
    mAccounts.mAll[i].fetch_sub(amount, std::memory_order_relaxed);
    if (!isTrusted) mAccounts.mStrangers[i].fetch_sub(amount, std::memory_order_relaxed);
}

bool Account::mayLog(uint64_t* outLeftOut) {
    const nsecs_t now = systemTime();
    nsecs_t last = mLastLog.load(std::memory_order_relaxed);
    if ((last != 0 && now - last < kLogInterval) ||
        !mLastLog.compare_exchange_strong(last, now, std::memory_order_relaxed)) {
        mLeftOut.fetch_add(1, std::memory_order_relaxed);
        return false;
    }
    *outLeftOut = mLeftOut.exchange(0, std::memory_order_relaxed);
    return true;
}

void Account::shutOut() {
    if (!isTrusted) mShutOutUntil.store(systemTime() + kShutOut, std::memory_order_relaxed);
}

bool Account::isShutOut() const {
    const nsecs_t until = mShutOutUntil.load(std::memory_order_relaxed);
    return until != 0 && systemTime() < until;
}

Accounts::Accounts(const Limits& limits, std::vector<uid_t> trusted)
        : mTrusted(std::move(trusted)) {
    for (size_t i = 0; i < kResources; ++i)
        setLimit(static_cast<Resource>(i), limits[i]);
}

void Accounts::setLimit(Resource resource, const Limit& limit) {
    AtomicLimit& atomic = mLimits[indexOf(resource)];
    atomic.all.store(limit.all, std::memory_order_relaxed);
    atomic.strangers.store(limit.strangers, std::memory_order_relaxed);
    atomic.stranger.store(limit.stranger, std::memory_order_relaxed);
}

void Accounts::setThreads(uint64_t count) {
    const uint64_t half = std::max<uint64_t>(count / 2, 1);
    // The pool itself bounds the calls of the trusted.
    setLimit(Resource::CALLS, {UINT64_MAX / 2, half, std::max<uint64_t>(half / 2, 1)});
}

Account& Accounts::of(uid_t uid) {
    Mutex::Autolock lock(mLock);
    std::unique_ptr<Account>& account = mAccounts[uid];
    if (account == nullptr) account = std::make_unique<Account>(*this, uid, isTrusted(uid));
    return *account;
}

bool Accounts::isTrusted(uid_t uid) const {
    return uid == 0 || std::find(mTrusted.begin(), mTrusted.end(), uid) != mTrusted.end();
}

std::string Accounts::report() const {
    std::string text = "limits (all users, all strangers, one stranger) and present use:\n";
    char line[160];
    const auto append = [&](int length) {
        text.append(line, std::min<size_t>(length, sizeof(line) - 1));
    };
    for (size_t i = 0; i < kResources; ++i) {
        const AtomicLimit& limit = mLimits[i];
        if (limit.all >= UINT64_MAX / 2) {
            append(snprintf(line, sizeof(line), "  %-12s -, ", kNames[i]));
        } else {
            append(snprintf(line, sizeof(line), "  %-12s %" PRIu64 ", ", kNames[i],
                            limit.all.load()));
        }
        append(snprintf(line, sizeof(line),
                        "%" PRIu64 ", %" PRIu64 "; used %" PRIu64 ", by strangers %" PRIu64 "\n",
                        limit.strangers.load(), limit.stranger.load(), mAll[i].load(),
                        mStrangers[i].load()));
    }
    Mutex::Autolock lock(mLock);
    for (const auto& [uid, account] : mAccounts) {
        append(snprintf(line, sizeof(line), "  uid %u%s:", uid,
                        account->isTrusted ? " (trusted)" : ""));
        for (size_t i = 0; i < kResources; ++i) {
            append(snprintf(line, sizeof(line), " %s %" PRIu64 "%s", kNames[i],
                            account->mUsed[i].load(), i + 1 < kResources ? "," : "\n"));
        }
    }
    return text;
}

void Charge::giveBack() {
    for (size_t i = 0; i < mAmounts.size(); ++i) {
        if (mAmounts[i] != 0) mAccount->giveBack(static_cast<Resource>(i), mAmounts[i]);
    }
}

void Charge::giveBack(Resource resource, uint32_t amount) {
    if (amount == 0) return;
    mAccount->giveBack(resource, amount);
    mAmounts[indexOf(resource)] -= amount;
}

void Charge::moveTo(Charge* other, Resource resource, uint32_t amount) {
    mAmounts[indexOf(resource)] -= amount;
    other->hold(*mAccount, resource, amount);
}

}  // namespace android::transport
