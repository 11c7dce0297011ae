#include <properties/PropertyFile.h>

#include "PropertyStore.h"

namespace sonorel {

bool loadPropertyFile(const std::string& path, std::string* outError) {
    return PropertyStore::get().loadFile(path, outError);
}

}  // namespace sonorel
