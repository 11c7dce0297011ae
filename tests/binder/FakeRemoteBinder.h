#pragma once

#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <gtest/gtest.h>
#include <utils/Mutex.h>

#include <utility>
#include <vector>

namespace sonorel::test {

// A local object that looks as if another process owned it: calls reach it through a copy of their
// parcels, and the "process" can be ended.
class FakeRemoteBinder : public android::IBinder {
public:
    explicit FakeRemoteBinder(const android::sp<android::BBinder>& object = nullptr)
            : mObject(object) {}

    // Ends the owner and tells the recipients on this thread.
    void die() {
        std::vector<android::wp<DeathRecipient>> links;
        {
            android::Mutex::Autolock lock(mLock);
            mAlive = false;
            links = std::move(mLinks);
        }
        for (const auto& link : links) {
            const android::sp<DeathRecipient> recipient = link.promote();
            if (recipient != nullptr) recipient->binderDied(this);
        }
    }

    size_t linkCount() const {
        android::Mutex::Autolock lock(mLock);
        return mLinks.size();
    }

    const android::String16& getInterfaceDescriptor() const override { return mDescriptor; }
    bool isBinderAlive() const override {
        android::Mutex::Autolock lock(mLock);
        return mAlive;
    }
    android::status_t pingBinder() override {
        return isBinderAlive() ? android::OK : android::DEAD_OBJECT;
    }
    android::status_t dump(int, const android::Vector<android::String16>&) override {
        return android::OK;
    }

    android::status_t transact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                               uint32_t flags) override {
        if (!isBinderAlive() || mObject == nullptr) return android::DEAD_OBJECT;
        android::Parcel received;
        EXPECT_EQ(android::OK, received.appendFrom(&data, 0, data.dataSize()));
        android::Parcel answer;
        const android::status_t status = mObject->transact(code, received, &answer, flags);
        if (status == android::OK && reply != nullptr && (flags & FLAG_ONEWAY) == 0) {
            reply->freeData();
            EXPECT_EQ(android::OK, reply->appendFrom(&answer, 0, answer.dataSize()));
            reply->setDataPosition(0);
        }
        return status;
    }

    android::status_t linkToDeath(const android::sp<DeathRecipient>& recipient, void*,
                                  uint32_t) override {
        android::Mutex::Autolock lock(mLock);
        if (!mAlive) return android::DEAD_OBJECT;
        mLinks.emplace_back(recipient);
        return android::OK;
    }
    android::status_t unlinkToDeath(const android::wp<DeathRecipient>& recipient, void*, uint32_t,
                                    android::wp<DeathRecipient>*) override {
        android::Mutex::Autolock lock(mLock);
        if (!mAlive) return android::DEAD_OBJECT;
        for (auto it = mLinks.begin(); it != mLinks.end(); ++it) {
            if (*it != recipient) continue;
            mLinks.erase(it);
            return android::OK;
        }
        return android::NAME_NOT_FOUND;
    }

    void* attachObject(const void*, void*, void*, object_cleanup_func) override { return nullptr; }
    void* findObject(const void*) const override { return nullptr; }
    void* detachObject(const void*) override { return nullptr; }

private:
    const android::sp<android::BBinder> mObject;
    const android::String16 mDescriptor;
    mutable android::Mutex mLock;
    bool mAlive GUARDED_BY(mLock) = true;
    std::vector<android::wp<DeathRecipient>> mLinks GUARDED_BY(mLock);
};

}  // namespace sonorel::test
