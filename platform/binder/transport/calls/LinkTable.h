#pragma once

#include <utils/Mutex.h>

#include <unordered_map>

#include "../peers/Link.h"

namespace android::transport {

/** The links that an event set may report, by number. Thread-safe. */
class LinkTable {
public:
    void add(const LinkPtr& link) EXCLUDES(mLock) {
        Mutex::Autolock lock(mLock);
        mLinks[link->id()] = link;
    }
    [[nodiscard]] LinkPtr find(uint64_t id) const EXCLUDES(mLock) {
        Mutex::Autolock lock(mLock);
        const auto entry = mLinks.find(id);
        return entry == mLinks.end() ? nullptr : entry->second;
    }
    void remove(const LinkPtr& link) EXCLUDES(mLock) {
        Mutex::Autolock lock(mLock);
        mLinks.erase(link->id());  // the caller's pointer keeps it past the lock
    }

private:
    mutable Mutex mLock;
    std::unordered_map<uint64_t, LinkPtr> mLinks GUARDED_BY(mLock);
};

}  // namespace android::transport
