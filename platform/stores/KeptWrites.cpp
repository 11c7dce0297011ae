#include "KeptWrites.h"

#include <algorithm>
#include <utility>

namespace android {

KeptWrites::Kept KeptWrites::keep(KeptWrite write) {
    const auto isSame = [&write](const KeptWrite& kept) { return kept.key == write.key; };
    const auto same = std::find_if(mWrites.begin(), mWrites.end(), isSame);
    const bool isReplaced = same != mWrites.end();
    if (!isReplaced && mWrites.size() >= kMost) return Kept::kFull;
    if (isReplaced) mWrites.erase(same);
    mWrites.push_back(std::move(write));
    return isReplaced ? Kept::kReplaced : Kept::kNew;
}

const RowValue* KeptWrites::find(const RowKey& key) const {
    for (const KeptWrite& kept : mWrites) {
        if (kept.key == key) return &kept.value;
    }
    return nullptr;
}

}  // namespace android
