#pragma once

#include <sys/stat.h>

#include <string>
#include <unordered_map>

namespace android {

// The content of one list file as last read, and what tells whether it has changed since. Not
// thread-safe.
class ListFile {
public:
    // Reads the file again if it may have changed. False, with the entries gone, when it cannot be
    // read; the reason is logged under `shownPath`, which is the file's name on a device.
    [[nodiscard]] bool refresh(const std::string& path, const std::string& shownPath);

    // The value of `key`, null if there is none. Valid until the next refresh().
    const std::string* find(const std::string& key) const;

private:
    [[nodiscard]] bool isUnchanged(const struct stat& now) const;
    [[nodiscard]] bool read(const std::string& path, const std::string& shownPath);
    void parse(const std::string& content, const std::string& shownPath);

    std::unordered_map<std::string, std::string> mEntries;
    struct stat mSeen = {};
    // Whether the file was old enough when read that a later edit must show in its times.
    bool mSettled = false;
};

}  // namespace android
