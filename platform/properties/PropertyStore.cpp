#define LOG_TAG "Properties"

#include "PropertyStore.h"

#include <android-base/strings.h>
#include <cutils/properties.h>
#include <log/log.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>

#include "Environment.h"

namespace sonorel {
namespace {

// A property file is a few kilobytes. The bound keeps a wrongly named device or log from filling
// the memory.
constexpr size_t kMaxFileSize = size_t{1} << 20;

std::string errnoText(int error) {
    return std::generic_category().message(error);
}

bool isNameCharacter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || std::strchr("._-@:", c) != nullptr;
}

bool isName(const std::string& key) {
    return !key.empty() && key.find('\0') == std::string::npos && key.front() != '.' &&
           key.back() != '.' && std::all_of(key.begin(), key.end(), isNameCharacter);
}

bool readWhole(const std::string& path, std::string* outText, std::string* outError) {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path.c_str(), "re"), fclose);
    if (file == nullptr) {
        *outError = path + ": " + errnoText(errno);
        return false;
    }
    std::array<char, 4096> buffer{};
    while (const size_t size = fread(buffer.data(), 1, buffer.size(), file.get())) {
        if (outText->size() + size > kMaxFileSize) {
            *outError = path + ": larger than a property file may be";
            return false;
        }
        outText->append(buffer.data(), size);
    }
    if (ferror(file.get()) != 0) {
        *outError = path + ": " + errnoText(errno);
        return false;
    }
    return true;
}

}  // namespace

PropertyStore& PropertyStore::get() {
    static PropertyStore* const store = [] {
        auto* made = new PropertyStore;
        made->loadFromEnvironment();
        return made;
    }();
    return *store;
}

void PropertyStore::loadFromEnvironment() {
    std::string error;
    if (const char* root = environmentVariable("SONOREL_DEVICE_ROOT")) {
        const std::string path = std::string(root) + "/build.prop";
        std::error_code ignored;
        // A root without the file is an ordinary one.
        if (std::filesystem::exists(path, ignored) && !loadFile(path, &error)) {
            ALOGE("cannot read properties: %s", error.c_str());
        }
    }
    if (const char* path = environmentVariable("SONOREL_PROPERTIES")) {
        if (!loadFile(path, &error)) ALOGE("cannot read properties: %s", error.c_str());
    }
}

std::optional<std::string> PropertyStore::find(const std::string& key) const {
    android::Mutex::Autolock lock(mMutex);
    const auto found = mValues.find(key);
    if (found == mValues.end()) return std::nullopt;
    return found->second;
}

bool PropertyStore::set(const std::string& key, const std::string& value, std::string* outError) {
    if (!isName(key)) {
        *outError = "\"" + key + "\" is no property name";
        return false;
    }
    if (value.size() >= PROPERTY_VALUE_MAX) {
        *outError = "the value of " + key + " has " + std::to_string(value.size()) +
                    " bytes, at most " + std::to_string(PROPERTY_VALUE_MAX - 1) + " are allowed";
        return false;
    }
    if (value.find('\0') != std::string::npos) {
        *outError = "the value of " + key + " holds a zero byte";
        return false;
    }
    android::Mutex::Autolock lock(mMutex);
    mValues[key] = value;
    return true;
}

bool PropertyStore::loadFile(const std::string& path, std::string* outError) {
    std::string text;
    if (!readWhole(path, &text, outError)) return false;
    size_t number = 0;
    for (const std::string& line : android::base::Split(text, "\n")) {
        loadLine(android::base::Trim(line), path, ++number);
    }
    return true;
}

void PropertyStore::loadLine(const std::string& line, const std::string& path, size_t number) {
    if (line.empty() || line.front() == '#') return;
    const size_t equals = line.find('=');
    std::string error = "no '=' in the line";
    if (equals != std::string::npos && set(android::base::Trim(line.substr(0, equals)),
                                           android::base::Trim(line.substr(equals + 1)), &error)) {
        return;
    }
    ALOGW("%s:%zu: %s", path.c_str(), number, error.c_str());
}

}  // namespace sonorel
