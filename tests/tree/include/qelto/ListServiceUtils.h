#pragma once

#include <utils/Singleton.h>

namespace android {

class ListServiceUtils : public Singleton<ListServiceUtils> {
public:
    int getListValueByName(const char* listName, const char* key, char* value, int valueSize);
};

}  // namespace android
