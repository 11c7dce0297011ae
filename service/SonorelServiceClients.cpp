#include <optional>
#include <utility>

#include "service/ServiceLog.h"
#include "service/SonorelService.h"

namespace android {

namespace {

// The registration whose client's death this thread is handling, while it calls unregisterClient().
thread_local const SonorelService::CallbackClient* tDying = nullptr;
// The registration of client 1 to which this thread is pushing everything stored; none otherwise.
thread_local std::optional<uint64_t> tPushedTo;

}  // namespace

SonorelService::CallbackClient::CallbackClient(const sp<SonorelService>& service,
                                               const sp<IHalvendClient>& client, int8_t clientId,
                                               uint64_t registration)
        : mService(service), mClient(client), mClientId(clientId), mRegistration(registration) {}

SonorelService::CallbackClient::~CallbackClient() = default;

void SonorelService::CallbackClient::binderDied(const wp<IBinder>&) {
    mService->onClientDied(*this);
}

// ---- Registering

binder::Status SonorelService::registerClient(const sp<IHalvendClient>& client, int8_t clientId) {
    if (client == nullptr) {
        SONOREL_LOGE("%s, client is null, client id: %d", __func__, clientId);
        return binder::Status::ok();
    }
    SettingsPush push;
    bool isRendererOwed = false;
    bool isEffectCentreOwed = false;
    sp<CallbackClient> dead;  // released after the lock
    {
        SONOREL_LOGD("%s from: %d", __func__, clientId);
        Mutex::Autolock lock(mClientLock);
        sp<CallbackClient> entry = findClient(clientId);
        if (entry != nullptr && !IInterface::asBinder(entry->mClient)->isBinderAlive()) {
            // Its death is about to be handled on another thread, which then finds it done.
            countDeathLocked(*entry);
            dead = takeClientLocked(clientId);
            entry.clear();
        }
        // A second registration under an id is ignored: the first one has to unregister.
        if (entry == nullptr) {
            addClientLocked(client, clientId);
        }
        isRendererOwed =
                clientId == IHalvendClient::CLIENT_ID_META_AUDIO && beginNeededPushLocked(&push);
        isEffectCentreOwed = clientId == IHalvendClient::CLIENT_ID_EFFECT_CENTER &&
                             mSupportSpeaker && mNeedInitEffectCenter &&
                             findClient(clientId) != nullptr;
    }
    if (isRendererOwed) {
        pushSettings(push);
    }
    if (isEffectCentreOwed) {
        initAudioEffectCenter();
    }
    return binder::Status::ok();
}

void SonorelService::addClientLocked(const sp<IHalvendClient>& client, int8_t clientId) {
    const sp<CallbackClient> entry =
            new CallbackClient(this, client, clientId, ++mLastRegistration);
    size_t size = 0;
    {
        Mutex::Autolock leaf(mClientTableLock);
        mClients.add(clientId, entry);
        size = mClients.size();
    }
    SONOREL_LOGD("%s from: %d size %zu", "registerClient", clientId, size);
    const status_t linked = IInterface::asBinder(client)->linkToDeath(entry, nullptr, 0);
    if (linked == DEAD_OBJECT) {
        // The client ended before it could be watched, so no death will ever be reported.
        (void)takeClientLocked(clientId);
        SONOREL_LOGW("%s from: %d died while it registered", "registerClient", clientId);
    }
}

binder::Status SonorelService::registerClientOneWay(const sp<IHalvendClient>& client,
                                                    int8_t clientId) {
    SONOREL_LOGD("%s", __func__);
    return registerClient(client, clientId);
}

// ---- Unregistering, and death

binder::Status SonorelService::unregisterClient(int8_t clientId) {
    sp<CallbackClient> removed;  // released after the lock
    Mutex::Autolock lock(mClientLock);
    // A death ends its own registration, never that of a successor under the id.
    if (tDying == nullptr || findClient(clientId).get() == tDying) {
        removed = takeClientLocked(clientId);
    }
    size_t size = 0;
    {
        Mutex::Autolock leaf(mClientTableLock);
        size = mClients.size();
    }
    SONOREL_LOGD("%s client id: %d size: %zu", __func__, clientId, size);
    return binder::Status::ok();
}

sp<SonorelService::CallbackClient> SonorelService::takeClientLocked(int8_t clientId) {
    Mutex::Autolock leaf(mClientTableLock);
    const sp<CallbackClient> taken = mClients.valueFor(clientId);
    mClients.removeItem(clientId);
    return taken;
}

void SonorelService::onClientDied(CallbackClient& client) {
    {
        Mutex::Autolock lock(mClientLock);
        if (findClient(client.mClientId).get() == &client) {
            countDeathLocked(client);
        }
    }
    tDying = &client;
    (void)unregisterClient(client.mClientId);  // always ok
    tDying = nullptr;
}

void SonorelService::countDeathLocked(CallbackClient& client) {
    if (client.mHasDied) return;
    client.mHasDied = true;
    if (client.mClientId == IHalvendClient::CLIENT_ID_META_AUDIO) {
        (void)needSettingsPush();  // the next registration looks
    }
}

// ---- The push of everything stored to client 1

uint32_t SonorelService::needSettingsPush() {
    const uint32_t need = ++mLastNeed;
    mNeedInitMetaAudio = need;
    return need;
}

bool SonorelService::beginNeededPushLocked(SettingsPush* outPush) {
    const sp<CallbackClient> renderer = findClient(IHalvendClient::CLIENT_ID_META_AUDIO);
    if (renderer == nullptr) return false;  // it died while it registered; the next one gets them
    const uint32_t need = mNeedInitMetaAudio;
    const bool isUnderWay = mPush.need == need && mPush.registration == renderer->mRegistration;
    if (need == 0 || isUnderWay) return false;
    mPush.need = need;
    mPush.registration = renderer->mRegistration;
    *outPush = mPush;
    return true;
}

void SonorelService::pushSettings(const SettingsPush& push) {
    tPushedTo = push.registration;
    initQeltoMetaAudio(true);
    initMss();
    tPushedTo.reset();
    Mutex::Autolock lock(mClientLock);
    const sp<CallbackClient> renderer = findClient(IHalvendClient::CLIENT_ID_META_AUDIO);
    // One whose death has been counted is still in the table for a moment.
    if (renderer != nullptr && renderer->mRegistration == push.registration &&
        !renderer->mHasDied) {
        uint32_t expected = push.need;  // a later need stays
        mNeedInitMetaAudio.compare_exchange_strong(expected, 0);
    }
}

// ---- Calling

sp<SonorelService::CallbackClient> SonorelService::findClient(int8_t clientId) const {
    Mutex::Autolock leaf(mClientTableLock);
    return mClients.valueFor(clientId);
}

// The record comes by value, as every sender hands over its own.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void SonorelService::callClient(int8_t clientId, int32_t event, CallbackData in,
                                CallbackData* answer) {
    Mutex::Autolock lock(mClientLock);
    sp<CallbackClient> entry = findClient(clientId);
    // A renderer that came during another one's push gets a whole one of its own, not the rest.
    if (entry != nullptr && tPushedTo && clientId == IHalvendClient::CLIENT_ID_META_AUDIO &&
        entry->mRegistration != *tPushedTo) {
        entry.clear();
    }
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
