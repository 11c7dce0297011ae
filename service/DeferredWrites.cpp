#include "service/DeferredWrites.h"

#include <algorithm>
#include <tuple>

namespace android {

namespace {

constexpr int32_t kDevices = 2;
constexpr int32_t kLastScene = 13;

}  // namespace

bool SettingRow::isKept() const {
    if (kind == Kind::kGameSwitch || device < 0 || device >= kDevices) return false;
    return kind != Kind::kScenePos || (scene >= 1 && scene <= kLastScene);
}

std::string SettingRow::text() const {
    const std::string ofDevice = " of device " + std::to_string(device);
    switch (kind) {
        case Kind::kOn:
            return "on/off" + ofDevice;
        case Kind::kMode:
            return "mode" + ofDevice;
        case Kind::kScenePos:
            return "position of scene " + std::to_string(scene) + ofDevice;
        case Kind::kGameSwitch:
            return "game switch of " + pkgName;
    }
    return "";
}

bool SettingRow::operator<(const SettingRow& other) const {
    return std::tie(kind, device, scene, pkgName) <
           std::tie(other.kind, other.device, other.scene, other.pkgName);
}

bool DeferredWrites::post(const SettingRow& row, const sp<AMessage>& msg) {
    {
        Mutex::Autolock lock(mLock);
        while (row.kind == SettingRow::Kind::kGameSwitch && isFull(row))
            (void)mRoom.wait(mLock);  // fails on a broken mutex only
        if (isFull(row)) return false;
        const auto [found, isNew] = mChoices.try_emplace(row);
        size_t* const count = counted(row);
        if (isNew && count != nullptr) ++*count;
        Choice& choice = found->second;
        choice.newest = msg;
        if (choice.queued != nullptr) return true;
        choice.queued = msg;
    }
    if (msg->post() == OK) return true;
    // The looper is gone, and nobody will ever carry it out.
    Mutex::Autolock lock(mLock);
    if (const auto found = mChoices.find(row); found != mChoices.end()) forget(found);
    return false;
}

void DeferredWrites::drop(const SettingRow& row) {
    Mutex::Autolock lock(mLock);
    if (const auto found = mChoices.find(row); found != mChoices.end()) {
        found->second.newest.clear();
    }
}

sp<AMessage> DeferredWrites::begin(const sp<AMessage>& delivered) {
    Mutex::Autolock lock(mLock);
    const auto found = std::find_if(mChoices.begin(), mChoices.end(), [&](const auto& entry) {
        return entry.second.queued == delivered;
    });
    if (found == mChoices.end()) return delivered;
    Choice& choice = found->second;
    choice.queued.clear();
    choice.written = choice.newest;
    if (choice.written != nullptr) return choice.written;
    forget(found);
    return nullptr;
}

void DeferredWrites::end() {
    Mutex::Autolock lock(mLock);
    const auto found = std::find_if(mChoices.begin(), mChoices.end(), [](const auto& entry) {
        return entry.second.written != nullptr;
    });
    if (found == mChoices.end()) return;  // a message that did not come from post()
    Choice& choice = found->second;
    choice.written.clear();
    // A newer choice has come meanwhile, with a message of its own.
    if (choice.queued == nullptr) forget(found);
}

sp<AMessage> DeferredWrites::newest(const SettingRow& row) const {
    if (!row.isKept()) return nullptr;
    Mutex::Autolock lock(mLock);
    const auto found = mChoices.find(row);
    return found == mChoices.end() ? nullptr : found->second.newest;
}

std::map<std::string, sp<AMessage>> DeferredWrites::newestGameSwitches() const {
    std::map<std::string, sp<AMessage>> newest;
    Mutex::Autolock lock(mLock);
    for (const auto& [row, choice] : mChoices) {
        if (row.kind == SettingRow::Kind::kGameSwitch && choice.newest != nullptr) {
            newest[row.pkgName] = choice.newest;
        }
    }
    return newest;
}

std::vector<SettingRow> DeferredWrites::waiting() const {
    std::vector<SettingRow> rows;
    Mutex::Autolock lock(mLock);
    for (const auto& [row, choice] : mChoices) {
        if (choice.newest != nullptr) rows.push_back(row);
    }
    return rows;
}

size_t* DeferredWrites::counted(const SettingRow& row) {
    if (row.kind == SettingRow::Kind::kGameSwitch) return &mGameRows;
    return row.isKept() ? nullptr : &mUnknownRows;
}

bool DeferredWrites::isFull(const SettingRow& row) {
    const size_t* const count = counted(row);
    return count != nullptr && *count >= kMaxRows && mChoices.count(row) == 0;
}

void DeferredWrites::forget(Choices::iterator choice) {
    if (size_t* const count = counted(choice->first); count != nullptr) --*count;
    mChoices.erase(choice);
    mRoom.broadcast();
}

}  // namespace android
