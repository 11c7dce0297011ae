#pragma once

#include <utils/Mutex.h>

#include <map>
#include <optional>
#include <string>

namespace sonorel {

// The process's table of properties. Thread-safe.
class PropertyStore {
public:
    // Made, and filled from the environment's files, at the first call; never destroyed, because
    // threads and static destructors may still read while the process leaves.
    static PropertyStore& get();

    std::optional<std::string> find(const std::string& key) const EXCLUDES(mMutex);

    // False, with the reason in outError, for a name or a value that is not one.
    [[nodiscard]] bool set(const std::string& key, const std::string& value, std::string* outError)
            EXCLUDES(mMutex);

    [[nodiscard]] bool loadFile(const std::string& path, std::string* outError) EXCLUDES(mMutex);

private:
    PropertyStore() = default;
    void loadFromEnvironment() EXCLUDES(mMutex);
    void loadLine(const std::string& line, const std::string& path, size_t number) EXCLUDES(mMutex);

    mutable android::Mutex mMutex;
    std::map<std::string, std::string> mValues GUARDED_BY(mMutex);
};

}  // namespace sonorel
