// Writes that met a locked file and wait for it to be free.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <tuple>
#include <variant>
#include <vector>

namespace android {

class SettingsDatabase;

// What one write is about, resolved when the caller made it: a later change of the current user or
// device does not move it.
struct RowKey {
    size_t statement = 0;  // of the store, says the kind of setting
    int user = 0;
    int device = 0;
    int scene = 0;
    std::string package;

    bool operator==(const RowKey& other) const {
        return std::tie(statement, user, device, scene, package) ==
               std::tie(other.statement, other.user, other.device, other.scene, other.package);
    }
};

// A number, bytes or a set of packages.
using RowValue = std::variant<int64_t, std::string, std::set<std::string>>;

struct KeptWrite {
    RowKey key;
    RowValue value;  // what a read of the row answers meanwhile
    const char* operation;
    // Owns all that it needs.
    std::function<int(const SettingsDatabase&)> work;
};

// In the order in which they were made, the newest of each row only, at most kMost. Not
// thread-safe.
class KeptWrites {
public:
    static constexpr size_t kMost = 512;
    enum class Kept { kNew, kReplaced, kFull };

    Kept keep(KeptWrite write);
    // Null when none of the row is kept; valid until the next change.
    const RowValue* find(const RowKey& key) const;
    bool empty() const { return mWrites.empty(); }
    size_t size() const { return mWrites.size(); }
    const KeptWrite& oldest() const { return mWrites.front(); }
    void dropOldest() { mWrites.erase(mWrites.begin()); }
    const std::vector<KeptWrite>& all() const { return mWrites; }

private:
    std::vector<KeptWrite> mWrites;
};

}  // namespace android
