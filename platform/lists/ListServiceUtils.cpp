#define LOG_TAG "SonorelLists"

#include <qelto/ListServiceUtils.h>

#include <log/log.h>
#include <qelto/DevicePath.h>
#include <string.h>
#include <utils/Mutex.h>

#include <algorithm>
#include <map>
#include <string>

#include "ListFile.h"

namespace android {
namespace {

constexpr const char* kListFolder = "/data/qelto/multimedia/lists/";
constexpr size_t kMaxNameLength = 127;

bool isNameChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_' || c == '.';
}

// A name that can only be a file directly in the lists' folder.
bool isListName(const char* name) {
    const size_t length = strnlen(name, kMaxNameLength + 1);
    return length > 0 && length <= kMaxNameLength && name[0] != '.' &&
           std::all_of(name, name + length, isNameChar);
}

}  // namespace

// The lists read so far, by name. Lists that cannot be read leave no entry.
class ListCache {
public:
    // True, with the value, when the list has the key.
    [[nodiscard]] bool find(const std::string& listName, const std::string& key,
                            std::string* outValue) EXCLUDES(mLock) {
        const std::string shownPath = kListFolder + listName + ".list";
        const std::string path = mapDevicePath(shownPath);
        Mutex::Autolock lock(mLock);
        ListFile& file = mFiles[listName];
        if (!file.refresh(path, shownPath)) {
            mFiles.erase(listName);
            return false;
        }
        const std::string* value = file.find(key);
        if (value != nullptr) *outValue = *value;
        return value != nullptr;
    }

private:
    Mutex mLock;
    std::map<std::string, ListFile> mFiles GUARDED_BY(mLock);
};

ANDROID_SINGLETON_STATIC_INSTANCE(ListServiceUtils)

ListServiceUtils::ListServiceUtils() : mCache(std::make_unique<ListCache>()) {}

ListServiceUtils::~ListServiceUtils() = default;

int ListServiceUtils::getListValueByName(const char* listName, const char* key, char* value,
                                         int valueSize) {
    if (value == nullptr || valueSize <= 0) {
        ALOGE("%s: no room for a value (%d bytes)", __func__, valueSize);
        return 0;
    }
    value[0] = '\0';
    if (listName == nullptr || key == nullptr || !isListName(listName)) {
        ALOGE("%s: refused list name '%.64s'", __func__, listName == nullptr ? "" : listName);
        return 0;
    }
    std::string found;
    if (!mCache->find(listName, key, &found)) return 0;
    if (found.size() >= static_cast<size_t>(valueSize)) {
        ALOGE("%s: %s: the value of '%.64s' has %zu bytes, there is room for %d", __func__,
              listName, key, found.size(), valueSize - 1);
        return 0;
    }
    memcpy(value, found.c_str(), found.size() + 1);
    return 1;
}

}  // namespace android
