#pragma once

#include <memory>

#include <utils/Singleton.h>

namespace android {

class ListCache;

// Look-ups in the device's named lists, /data/qelto/multimedia/lists/NAME.list: lines "key value",
// where the value is the rest of the line without the blanks around it; blank lines and lines that
// begin with '#' are skipped, and of two lines with one key the later counts. A list may be edited
// or replaced at any time: the next look-up sees it.
//
// One object a process (getInstance()). Thread-safe; a look-up reads the file only when it changed.
class ListServiceUtils : public Singleton<ListServiceUtils> {
public:
    ListServiceUtils(const ListServiceUtils&) = delete;
    ListServiceUtils& operator=(const ListServiceUtils&) = delete;

    // Copies the value of `key` in the list `listName` into value[0..valueSize-1], with a
    // terminating zero, and returns non-zero. Returns 0 when there is no such key or list, when
    // the list's name is not made of letters, digits, '-', '_' and '.' or begins with '.', and when
    // the value does not fit: half a value may mean something else, so none is given. Whenever 0 is
    // returned, the buffer holds the empty string if it holds anything.
    int getListValueByName(const char* listName, const char* key, char* value, int valueSize);

private:
    friend class Singleton<ListServiceUtils>;
    ListServiceUtils();
    ~ListServiceUtils();

    const std::unique_ptr<ListCache> mCache;
};

// The one instance lives in the library.
template <>
Mutex Singleton<ListServiceUtils>::sLock;
template <>
ListServiceUtils* Singleton<ListServiceUtils>::sInstance;

}  // namespace android
