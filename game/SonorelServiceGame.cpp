#include <qelto/FgeDatabase.h>
#include <qelto/GameListText.h>

#include "game/GameFlags.h"
#include "service/ServiceLog.h"
#include "service/SonorelService.h"
#include "service/SpHandler.h"

namespace android {

binder::Status SonorelService::setFastGameEffectOn(const std::string& pkgName, int32_t value,
                                                   int32_t* result) {
    if (!isAllowedFindHalvend()) return binder::Status::ok();
    *result = -1;
    if (!gSupportFastGameEffect || !isSwitchablePkg(pkgName)) return binder::Status::ok();
    if (mSpHandler != nullptr) {
        mSpHandler->setFgeDatabase(mFgeDatabase);
        mSpHandler->postFastGameEffect(pkgName, value);
    }
    *result = setFastGameEffectOnInt(pkgName, value);
    return binder::Status::ok();
}

bool SonorelService::isSwitchablePkg(const std::string& pkgName) const {
    Mutex::Autolock leaf(mGameLock);
    const auto found = mPkgNameSwitchMap.find(pkgName);
    return found != mPkgNameSwitchMap.end() && found->second >= 0;
}

int SonorelService::setFastGameEffectOnInt(const std::string& pkgName, int32_t value) {
    {
        Mutex::Autolock leaf(mGameLock);
        mPkgNameSwitchMap[pkgName] = value;
        mPkgNameChoices[pkgName] = ++mLastPkgNameChoice;
    }
    CallbackData in;
    in.pkgName = pkgName;
    in.renderMode = value;
    CallbackData reply;
    callClient(IHalvendClient::CLIENT_ID_META_AUDIO, IHalvendClient::CB_SET_FAST_GAME_EFFECT, in,
               &reply);
    SONOREL_LOGD("FastGameEffect: %s --- status:%d", __func__, reply.status);
    return reply.status;
}

binder::Status SonorelService::getFastGameEffectOn(const std::string& pkgName, int32_t* value) {
    *value = -1;  // what a refused caller gets as well
    if (!isAllowedFindHalvend() || !gSupportFastGameEffect) return binder::Status::ok();
    Mutex::Autolock leaf(mGameLock);
    const auto found = mPkgNameSwitchMap.find(pkgName);
    if (found != mPkgNameSwitchMap.end()) {
        *value = found->second;
    }
    return binder::Status::ok();
}

void SonorelService::initFastEffectSqlInfo() {
    if (mFgeDatabase == nullptr) return;
    const std::map<std::string, int> stored = reloadPkgSwitches();
    String8 text;
    FastEffectPkgSwitchMap2String(stored, &text);
    {
        Mutex::Autolock leaf(mGameLock);
        mPkgNameSwitchMapString.setTo(text.c_str(), text.size());
    }
    SONOREL_LOGD("FastGameEffect: %s() FastEffectPkgSwitchMap2String pkgNameSwitchMapString: %s",
                 __func__, text.c_str());
}

binder::Status SonorelService::loadPkgSwitchInFastSql(std::string* mapString) {
    initFastEffectSqlInfo();
    {
        Mutex::Autolock leaf(mGameLock);
        mapString->assign(mPkgNameSwitchMapString.c_str(), mPkgNameSwitchMapString.size());
    }
    SONOREL_LOGD("FastGameEffect: %s: mPkgNameSwitchMapString = %s", __func__, mapString->c_str());
    return binder::Status::ok();
}

binder::Status SonorelService::syncGameListInfo(const std::string& moduleInfo) {
    if (!isAllowedFindHalvend()) return binder::Status::ok();
    syncGameListInfoInt(moduleInfo);
    return binder::Status::ok();
}

void SonorelService::syncGameListInfoInt(const std::string& moduleInfo) {
    SONOREL_LOGD("FastGameEffect: %s: multimedia list vek update, moduleInfoStr: %s", __func__,
                 moduleInfo.c_str());
    std::map<std::string, int> listed;
    std::vector<std::string> packages;
    FastEffectString2PkgMapAndVec(String8(moduleInfo.c_str()), listed, packages);
    const size_t count = packages.size();
    {
        Mutex::Autolock leaf(mGameLock);
        mListPkgNameSwitchMap.swap(listed);
        mPkgNameHaveSwitchVec.swap(packages);
    }
    if (mFgeDatabase == nullptr) return;
    SONOREL_LOGD("FastGameEffect: %s , mPkgNameHaveSwitchVec.size %d", __func__,
                 static_cast<int>(count));
    updateFastGameEffectStore(reloadPkgSwitches());
}

void SonorelService::switchFastGameEffectUser(int32_t userId) {
    mFgeDatabase->mCurrentUserId = userId;
    std::map<std::string, int> stored;
    mFgeDatabase->getSwitchForPkgName(stored);
    {
        Mutex::Autolock leaf(mGameLock);
        mPkgNameSwitchMap = stored;
        mPkgNameChoices.clear();
    }
    updateFastGameEffectStore(stored);
}

// Brings the store in line with the list of switchable packages.
void SonorelService::updateFastGameEffectStore(const std::map<std::string, int>& stored) {
    std::vector<std::string> packages;
    {
        Mutex::Autolock leaf(mGameLock);
        packages = mPkgNameHaveSwitchVec;
    }
    mFgeDatabase->updateDataBase(packages, stored);
}

std::map<std::string, int> SonorelService::reloadPkgSwitches() {
    uint64_t lastChoice = 0;
    {
        Mutex::Autolock leaf(mGameLock);
        lastChoice = mLastPkgNameChoice;
    }
    // In this order: what is no longer waiting when it is asked for is in the store.
    std::map<std::string, int> waiting;
    if (mSpHandler != nullptr) {
        waiting = mSpHandler->waitingGameSwitches();
    }
    std::map<std::string, int> stored;
    mFgeDatabase->getSwitchForPkgName(stored);
    // A package that left the list reads as -1 whatever its value.
    const auto overlay = [&stored](const std::string& pkgName, int value) {
        const auto found = stored.find(pkgName);
        if (found != stored.end() && found->second >= 0) found->second = value;
    };
    for (const auto& [pkgName, value] : waiting)
        overlay(pkgName, value);
    Mutex::Autolock leaf(mGameLock);
    // What was set while the store was read.
    for (const auto& [pkgName, choice] : mPkgNameChoices) {
        if (choice > lastChoice) overlay(pkgName, mPkgNameSwitchMap[pkgName]);
    }
    mPkgNameSwitchMap = stored;
    return stored;
}

}  // namespace android
