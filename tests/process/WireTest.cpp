// The wire of the interface, frozen: codes, which calls are one-way, and the bytes of requests,
// replies and callback records. What is here must never change: clients that were built years ago
// speak it.

#include <memory>

#include <functional>
#include <utility>

#include <gtest/gtest.h>

#include <binder/Parcel.h>
#include <qelto/halvend/BpHalvendClient.h>
#include <qelto/halvend/BpSonorelService.h>

#include "process/AllMethods.h"
#include "process/RequestRecorder.h"
#include "service/ServiceHarness.h"
#include "support/InterfaceDefinition.h"

namespace sonorel::test {
namespace {

using android::Parcel;
using android::sp;
using qelto::halvend::CallbackData;
using qelto::halvend::IHalvendClient;
using qelto::halvend::ISonorelService;

std::string hex(const uint8_t* bytes, size_t size) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < size; ++i) {
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 15];
        if (i % 4 == 3 && i + 1 < size) text += ' ';
    }
    return text;
}

std::string hex(const std::vector<uint8_t>& bytes) {
    return hex(bytes.data(), bytes.size());
}

// Strict-mode word, work source, 'SYST', "qelto.halvend.ISonorelService".
const std::string kServiceHead =
        "00000080 ffffffff 54535953 1d000000 71006500 6c007400 6f002e00 68006100 6c007600 65006e00 "
        "64002e00 49005300 6f006e00 6f007200 65006c00 53006500 72007600 69006300 65000000 ";
// The same for "qelto.halvend.IHalvendClient".
const std::string kClientHead =
        "00000080 ffffffff 54535953 1c000000 71006500 6c007400 6f002e00 68006100 6c007600 65006e00 "
        "64002e00 49004800 61006c00 76006500 6e006400 43006c00 69006500 6e007400 00000000 ";

class Wire : public ::testing::Test {
protected:
    const sp<RequestRecorder> mServiceSide = new RequestRecorder(ISonorelService::descriptor);
    const sp<ISonorelService> mService = new qelto::halvend::BpSonorelService(mServiceSide);
    const sp<RequestRecorder> mClientSide = new RequestRecorder(IHalvendClient::descriptor);
    const sp<IHalvendClient> mClient = new qelto::halvend::BpHalvendClient(mClientSide);
};

TEST_F(Wire, CodesAreThePlacesInTheInterface) {
    std::vector<std::string> names;
    for (const Method& method : allMethods())
        names.emplace_back(method.name);
    EXPECT_EQ(definedMethods(), names);
    uint32_t code = android::IBinder::FIRST_CALL_TRANSACTION;
    Draw draw(1);
    for (const Method& method : allMethods()) {
        (void)method.call(*mService, draw, nullptr);  // the recorder answers with no reply
        EXPECT_EQ(code, mServiceSide->code()) << method.name;
        EXPECT_EQ(method.oneWay, mServiceSide->oneWay()) << method.name;
        EXPECT_EQ(kServiceHead, (hex(mServiceSide->bytes()) + " ").substr(0, kServiceHead.size()))
                << method.name;
        ++code;
    }
}

TEST_F(Wire, RequestsOfTheService) {
    int32_t number = 0;
    (void)mService->setMetaAudioOn(true, &number);
    EXPECT_EQ(kServiceHead + "01000000", hex(mServiceSide->bytes()));
    (void)mService->setMetaAudioModeWithDev(3, -1, &number);
    EXPECT_EQ(kServiceHead + "03000000 ffffffff", hex(mServiceSide->bytes()));
    (void)mService->sendHeadToStageData({0, 1, -1, 0.5f, 2, 100});
    EXPECT_EQ(kServiceHead + "06000000 00000000 0000803f 000080bf 0000003f 00000040 0000c842",
              hex(mServiceSide->bytes()));
    // An out vector goes as its size.
    std::vector<float> room(3);
    (void)mService->getCurrentPosWithDev(13, &room, 1);
    EXPECT_EQ(kServiceHead + "0d000000 03000000 01000000", hex(mServiceSide->bytes()));
    (void)mService->setMssEnable("a\xc3\xa4", true, &number);
    EXPECT_EQ(kServiceHead + "02000000 6100e400 00000000 01000000", hex(mServiceSide->bytes()));
    (void)mService->setOutputDeviceForMss(-2);
    EXPECT_EQ(kServiceHead + "feffffff ffffffff", hex(mServiceSide->bytes()));
    (void)mService->onPlayStateChange(4, {}, 2, "");
    EXPECT_EQ(kServiceHead + "04000000 00000000 02000000 00000000 00000000",
              hex(mServiceSide->bytes()));
}

// A record in which every field differs from its default.
CallbackData fullRecord() {
    CallbackData data;
    data.status = 1;
    data.enable = true;
    data.mode = -2;
    data.pkgName = "ab";
    data.scene = 13;
    data.intValue = 3;
    data.spMode = 4;
    data.isPlaying = true;
    data.playState = 5;
    data.data = {1, -1};
    data.intValue2 = 6;
    data.strValue = "c";
    data.splitScreenEnabled = true;
    data.splitScreenParam1 = 7;
    data.splitScreenParam2 = 8;
    data.strValue2 = "d";
    data.mssEnable = true;
    data.renderMode = 9;
    data.gains = {0.5f};
    return data;
}

// Its size, this word included, then the fields in the order of the definition.
const std::string kFullRecord =
        "6c000000 01000000 01000000 feffffff 02000000 61006200 00000000 0d000000 03000000 04000000 "
        "01000000 05000000 02000000 0000803f 000080bf 06000000 01000000 63000000 01000000 07000000 "
        "08000000 01000000 64000000 01000000 09000000 01000000 0000003f";
const std::string kFreshRecord =
        "5c000000 ffffffff 00000000 00000000 00000000 00000000 00000000 00000000 00000000 00000000 "
        "00000000 00000000 00000000 00000000 00000000 00000000 00000000 00000000 00000000 00000000 "
        "00000000 00000000 00000000";

TEST_F(Wire, CallbackRecords) {
    for (const auto& [record, bytes] :
         {std::pair{fullRecord(), kFullRecord}, std::pair{CallbackData(), kFreshRecord}}) {
        Parcel parcel;
        ASSERT_EQ(android::OK, record.writeToParcel(&parcel));
        EXPECT_EQ(bytes, hex(parcel.data(), parcel.dataSize()));
    }
}

TEST_F(Wire, CallbackRequests) {
    // The event, a word that says that a record follows, the record.
    CallbackData answer;
    (void)mClient->onClientEvent(IHalvendClient::CB_SET_META_AUDIO_ON, fullRecord(), &answer);
    EXPECT_EQ(1U, mClientSide->code());
    EXPECT_FALSE(mClientSide->oneWay());
    EXPECT_EQ(kClientHead + "00000000 01000000 " + kFullRecord, hex(mClientSide->bytes()));
    (void)mClient->onClientEventOneWay(IHalvendClient::CB_META_THREAD_TICK, CallbackData());
    EXPECT_EQ(2U, mClientSide->code());
    EXPECT_TRUE(mClientSide->oneWay());
    EXPECT_EQ(kClientHead + "04000000 01000000 " + kFreshRecord, hex(mClientSide->bytes()));
}

// Replies of the service itself: the status word, the return value, the out vectors.
class WireReplies : public ServiceTest {
protected:
    std::string reply(const std::function<void(ISonorelService&)>& call) {
        const sp<RequestRecorder> recorder = new RequestRecorder(ISonorelService::descriptor);
        const sp<ISonorelService> proxy = new qelto::halvend::BpSonorelService(recorder);
        call(*proxy);
        Parcel data;
        Parcel answer;
        EXPECT_EQ(android::OK, data.setData(recorder->bytes().data(), recorder->bytes().size()));
        EXPECT_EQ(android::OK, mService->transact(recorder->code(), data, &answer));
        return hex(answer.data(), answer.dataSize());
    }

    std::string setOn() {
        return reply([](ISonorelService& s) {
            int32_t status = 0;
            (void)s.setMetaAudioOn(true, &status);
        });
    }
    std::string getGains() {
        return reply([](ISonorelService& s) {
            int32_t result = 0;
            std::vector<float> gains(2);
            (void)s.getMssTracksGain("x", &gains, &result);
        });
    }
};

TEST_F(WireReplies, OfMethodsThatAnswer) {
    product(true);
    start();
    EXPECT_EQ("00000000 ffffffff", setOn());  // no renderer
    addClient(1, [](int32_t, const CallbackData&, CallbackData* out) { out->status = 5; });
    EXPECT_EQ("00000000 05000000", setOn());
    EXPECT_EQ("00000000", reply([](ISonorelService& s) { (void)s.testSonorelService(); }));
    EXPECT_EQ("00000000 01000000", reply([](ISonorelService& s) {
                  bool unsupported = false;
                  (void)s.isUnsupportDevice("old-dongle", &unsupported);
              }));
    EXPECT_EQ("00000000 04000000 6e007500 6c006c00 00000000", reply([](ISonorelService& s) {
                  std::string text;
                  (void)s.getMetaInfoByPkgName("unknown", &text);
              }));
    EXPECT_EQ("00000000 03000000 0000803f 00000040 00004040", reply([](ISonorelService& s) {
                  std::vector<float> pos(3);
                  (void)s.getDefaultPosWithDev(1, &pos, 1);
              }));
}

TEST_F(WireReplies, OfMethodsThatRefuse) {
    product(true);
    start();
    const ScopedCaller stranger(kStrangerUid);
    // Zeros, never what lay on the stack.
    EXPECT_EQ("00000000 00000000", setOn());
    EXPECT_EQ("00000000 00000000 02000000 00000000 00000000", getGains());
}

}  // namespace
}  // namespace sonorel::test
