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
        const sp<AMessage> msg = new AMessage(SpHandler::kWhatFastGameEffect, mSpHandler);
        msg->setString("fge_pkgname", pkgName.c_str(), static_cast<ssize_t>(pkgName.size()));
        msg->setInt32("fge_switch", value);
        msg->post();
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
    std::map<std::string, int> stored;
    mFgeDatabase->getSwitchForPkgName(stored);
    String8 text;
    FastEffectPkgSwitchMap2String(stored, &text);
    {
        Mutex::Autolock leaf(mGameLock);
        mPkgNameSwitchMap.swap(stored);
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
    syncFastGameEffectStore();
}

void SonorelService::switchFastGameEffectUser(int32_t userId) {
    mFgeDatabase->mCurrentUserId = userId;
    syncFastGameEffectStore();
}

// Takes over what the store holds for its user, and brings the store in line with the list.
void SonorelService::syncFastGameEffectStore() {
    std::map<std::string, int> stored;
    mFgeDatabase->getSwitchForPkgName(stored);
    std::vector<std::string> packages;
    {
        Mutex::Autolock leaf(mGameLock);
        mPkgNameSwitchMap = stored;
        packages = mPkgNameHaveSwitchVec;
    }
    mFgeDatabase->updateDataBase(packages, stored);
}

}  // namespace android
