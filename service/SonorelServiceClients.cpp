#include <utility>

#include "service/ServiceLog.h"
#include "service/SonorelService.h"

namespace android {

SonorelService::CallbackClient::CallbackClient(const sp<SonorelService>& service,
                                               const sp<IHalvendClient>& client, int8_t clientId)
        : mService(service), mClient(client), mClientId(clientId) {}

SonorelService::CallbackClient::~CallbackClient() = default;

void SonorelService::CallbackClient::binderDied(const wp<IBinder>&) {
    mService->dropDeadClient(mClientId);
}

binder::Status SonorelService::registerClient(const sp<IHalvendClient>& client, int8_t clientId) {
    if (client == nullptr) {
        SONOREL_LOGE("%s, client is null, client id: %d", __func__, clientId);
        return binder::Status::ok();
    }
    bool owedSettings = false;
    {
        SONOREL_LOGD("%s from: %d", __func__, clientId);
        Mutex::Autolock lock(mClientLock);
        // A second registration under an id is ignored: the first one has to unregister.
        if (findClient(clientId) == nullptr) {
            addClientLocked(client, clientId);
        }
        owedSettings = takeOwedSettingsLocked(clientId);
    }
    if (owedSettings) {
        pushSettings(clientId);
    }
    return binder::Status::ok();
}

void SonorelService::addClientLocked(const sp<IHalvendClient>& client, int8_t clientId) {
    const sp<CallbackClient> entry = new CallbackClient(this, client, clientId);
    size_t size = 0;
    {
        Mutex::Autolock leaf(mClientTableLock);
        mClients.add(clientId, entry);
        size = mClients.size();
    }
    SONOREL_LOGD("%s from: %d size %zu", "registerClient", clientId, size);
    const status_t linked = IInterface::asBinder(client)->linkToDeath(entry, nullptr, 0);
    if (linked == DEAD_OBJECT) {
        // The client ended before it could be watched, so nothing will ever tell of its death.
        removeClientLocked(clientId);
        SONOREL_LOGW("%s from: %d died while it registered", "registerClient", clientId);
    }
}

size_t SonorelService::removeClientLocked(int8_t clientId) {
    sp<CallbackClient> removed;  // released after the leaf, maybe with its last reference
    Mutex::Autolock leaf(mClientTableLock);
    removed = mClients.valueFor(clientId);
    mClients.removeItem(clientId);
    return mClients.size();
}

bool SonorelService::takeOwedSettingsLocked(int8_t clientId) {
    if (findClient(clientId) == nullptr) return false;  // it died, and the next one gets them
    if (clientId == IHalvendClient::CLIENT_ID_META_AUDIO) {
        // Taken down before the push, under the lock under which a death raises it: a client that
        // dies from now on leaves its successor the settings.
        return mNeedInitMetaAudio.exchange(false);
    }
    return clientId == IHalvendClient::CLIENT_ID_EFFECT_CENTER && mSupportSpeaker &&
           mNeedInitEffectCenter;
}

void SonorelService::pushSettings(int8_t clientId) {
    if (clientId == IHalvendClient::CLIENT_ID_META_AUDIO) {
        initQeltoMetaAudio(true);
        initMss();
    } else {
        initAudioEffectCenter();
    }
}

binder::Status SonorelService::registerClientOneWay(const sp<IHalvendClient>& client,
                                                    int8_t clientId) {
    SONOREL_LOGD("%s", __func__);
    return registerClient(client, clientId);
}

binder::Status SonorelService::unregisterClient(int8_t clientId) {
    sp<CallbackClient> keptUntilUnlocked = findClient(clientId);
    Mutex::Autolock lock(mClientLock);
    unregisterClientLocked(clientId);
    return binder::Status::ok();
}

void SonorelService::dropDeadClient(int8_t clientId) {
    sp<CallbackClient> keptUntilUnlocked = findClient(clientId);
    Mutex::Autolock lock(mClientLock);
    unregisterClientLocked(clientId);
    if (clientId == IHalvendClient::CLIENT_ID_META_AUDIO) {
        mNeedInitMetaAudio = true;
    }
}

void SonorelService::unregisterClientLocked(int8_t clientId) {
    const size_t size = removeClientLocked(clientId);
    SONOREL_LOGD("%s client id: %d size: %zu", "unregisterClient", clientId, size);
}

sp<SonorelService::CallbackClient> SonorelService::findClient(int8_t clientId) const {
    Mutex::Autolock leaf(mClientTableLock);
    return mClients.valueFor(clientId);
}

// The record comes by value, as every sender hands over its own.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void SonorelService::callClient(int8_t clientId, int32_t event, CallbackData in,
                                CallbackData* answer) {
    Mutex::Autolock lock(mClientLock);
    const sp<CallbackClient> entry = findClient(clientId);
    SONOREL_LOGD("%s:clientID:%d exist:%d, event:%d, isOneWay:%d", __func__, clientId,
                 entry != nullptr, event, answer == nullptr);
    if (entry == nullptr || entry->mClient == nullptr) return;
    if (answer == nullptr) {
        (void)entry->mClient->onClientEventOneWay(event, in);  // a client that is gone is no error
        return;
    }
    // A failed call may have filled a part of its record: the sender's answer is touched only by a
    // call that went well.
    CallbackData reply = *answer;
    if (entry->mClient->onClientEvent(event, in, &reply).isOk()) {
        *answer = std::move(reply);
    }
}

int SonorelService::spNotifyLoadXmlAndSqlite() {
    SONOREL_LOGD("%s +++ ", __func__);
    CallbackData answer;
    callClient(IHalvendClient::CLIENT_ID_META_AUDIO, IHalvendClient::CB_LOAD_XML_AND_SQLITE,
               CallbackData(), &answer);
    SONOREL_LOGD("%s --- ", __func__);
    return answer.status;
}

}  // namespace android
