// Callers that send rubbish, too little, too much, or end in the middle.

#include <memory>

#include <fcntl.h>

#include <algorithm>
#include <random>

#include <binder/Parcel.h>
#include <qelto/halvend/BpSonorelService.h>

#include "process/AllMethods.h"
#include "process/ProcessTest.h"
#include "process/RequestRecorder.h"

namespace sonorel::test {
namespace {

using android::Parcel;
using android::sp;
using qelto::halvend::ISonorelService;

class HostileCaller : public ProcessTest {
protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(start(speakerProduct()));
        mRemote = android::IInterface::asBinder(mService);
    }
    void TearDown() override {
        if (mService == nullptr) return;
        expectServes();
        // Nothing that came in had it lose its settings.
        EXPECT_EQ(0U, mRoot.damagedDatabases());
        mRemote.clear();
    }

    android::status_t send(uint32_t code, const std::vector<uint8_t>& bytes, uint32_t flags = 0) {
        Parcel data;
        Parcel reply;
        EXPECT_EQ(android::OK, data.setData(bytes.data(), bytes.size()));
        return mRemote->transact(code, data, &reply, flags);
    }

    // A well-formed request of each method.
    struct Request {
        uint32_t code;
        uint32_t flags;
        std::vector<uint8_t> bytes;
    };
    static std::vector<Request> requests() {
        std::vector<Request> all;
        const sp<RequestRecorder> recorder = new RequestRecorder(ISonorelService::descriptor);
        const sp<ISonorelService> proxy = new qelto::halvend::BpSonorelService(recorder);
        Draw draw(3);
        for (const Method& method : allMethods()) {
            (void)method.call(*proxy, draw, nullptr);  // the recorder answers with no reply
            all.push_back({recorder->code(), recorder->flags(), recorder->bytes()});
        }
        return all;
    }
    static size_t headSize() {
        Parcel parcel;
        EXPECT_EQ(android::OK, parcel.writeInterfaceToken(ISonorelService::descriptor));
        return parcel.dataSize();
    }

    sp<android::IBinder> mRemote;
};

TEST_F(HostileCaller, TruncatedRequestsAreRefused) {
    const size_t head = headSize();
    for (const Request& request : requests()) {
        for (size_t size = 0; size < std::min(request.bytes.size(), head + 64); size += 4) {
            const std::vector<uint8_t> part(request.bytes.begin(),
                                            request.bytes.begin() + static_cast<ptrdiff_t>(size));
            const android::status_t status = send(request.code, part, request.flags);
            if ((request.flags & android::IBinder::FLAG_ONEWAY) != 0) continue;
            // Never served: no head is another interface, a short argument is missing data.
            EXPECT_NE(android::OK, status) << "code " << request.code << " size " << size;
            if (size < head) {
                EXPECT_EQ(android::BAD_TYPE, status) << "code " << request.code << " size " << size;
            }
        }
    }
}

TEST_F(HostileCaller, DamagedRequests) {
    std::mt19937 random(11);
    const size_t head = headSize();
    for (const Request& request : requests()) {
        for (int round = 0; round < 40; ++round) {
            std::vector<uint8_t> bytes = request.bytes;
            bytes.resize(bytes.size() + random() % 16 * 4);
            for (size_t at = head; at + 4 <= bytes.size(); at += 4) {
                if (random() % 3 != 0) continue;
                constexpr uint32_t kWords[] = {0xffffffff, 0x7fffffff, 0x80000000, 0x00100000, 0};
                const uint32_t word =
                        random() % 2 == 0 ? kWords[random() % 5] : static_cast<uint32_t>(random());
                memcpy(bytes.data() + at, &word, sizeof(word));
            }
            (void)send(request.code, bytes, request.flags);  // whatever it answers, it lives
        }
    }
}

TEST_F(HostileCaller, RandomBytesAndCodes) {
    std::mt19937 random(12);
    for (int round = 0; round < 2000; ++round) {
        std::vector<uint8_t> bytes(random() % 64 * 4);
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<uint8_t>(random()); });
        const uint32_t code = round % 4 == 0 ? static_cast<uint32_t>(random())
                                             : static_cast<uint32_t>(random() % 60);
        (void)send(code, bytes);  // whatever it answers, it lives
    }
    // Without its interface's name nothing is a call.
    EXPECT_EQ(android::BAD_TYPE, send(1, std::vector<uint8_t>(128)));
    const Request bare = requests()[0];
    EXPECT_EQ(android::UNKNOWN_TRANSACTION, send(58, bare.bytes));
}

TEST_F(HostileCaller, ObjectsWhereNoneBelong) {
    const android::base::unique_fd null(::open("/dev/null", O_RDWR | O_CLOEXEC));
    for (uint32_t code = 1; code <= allMethods().size(); ++code) {
        Parcel data;
        Parcel reply;
        EXPECT_EQ(android::OK, data.writeInterfaceToken(ISonorelService::descriptor));
        EXPECT_EQ(android::OK, data.writeDupFileDescriptor(null.get()));
        EXPECT_EQ(android::OK, data.writeStrongBinder(new android::BBinder()));
        (void)mRemote->transact(code, data, &reply);  // whatever it answers, it lives
    }
    // A client that is none: registered by its binder alone, and silent when it is called.
    const sp<android::BBinder> stone = new android::BBinder();
    Parcel data;
    Parcel reply;
    EXPECT_EQ(android::OK, data.writeInterfaceToken(ISonorelService::descriptor));
    EXPECT_EQ(android::OK, data.writeStrongBinder(stone));
    EXPECT_EQ(android::OK, data.writeByte(1));
    EXPECT_EQ(android::OK, mRemote->transact(7, data, &reply));
    int32_t status = 0;
    EXPECT_TRUE(mService->setMetaAudioOn(true, &status).isOk());
    EXPECT_EQ(-1, status);
    EXPECT_TRUE(mService->unregisterClient(1).isOk());
}

TEST_F(HostileCaller, HugeOutVectorsAndTexts) {
    std::vector<float> room(10000000);
    EXPECT_FALSE(mService->getHeadToStageData(&room).isOk());
    std::vector<int32_t> scenes(200000, 7);
    EXPECT_TRUE(mService->javaCallGetSupportSceneArray(&scenes).isOk());
    ASSERT_EQ(200000U, scenes.size());
    EXPECT_EQ(13, scenes[13]);
    EXPECT_EQ(-1, scenes[14]);
    std::string info;
    EXPECT_TRUE(mService->getMetaInfoByPkgName(std::string(400000, 'x'), &info).isOk());
    EXPECT_FALSE(mService->getMetaInfoByPkgName(std::string(600000, 'x'), &info).isOk());
}

TEST_F(HostileCaller, CallerThatEndsInTheMiddleOfItsCall) {
    const sp<RecordingClient> renderer = addClient(1);
    for (int round = 0; round < 5; ++round) {
        renderer->closeGate();
        {
            ChildProcess caller(peer({"call"}));
            ASSERT_TRUE(renderer->waitUntilHeld()) << caller.errors();
            caller.kill(SIGKILL);
            ASSERT_TRUE(caller.wait().has_value());
        }
        std::string text;
        EXPECT_TRUE(mService->getMetaAudioSceMap(&text).isOk());
        renderer->openGate();
        int32_t status = 0;
        EXPECT_TRUE(mService->setMetaAudioMode(1, &status).isOk());
        EXPECT_EQ(kRendererStatus, status);
    }
}

}  // namespace
}  // namespace sonorel::test
