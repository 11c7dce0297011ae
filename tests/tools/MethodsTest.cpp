#include "sonorelctl/Methods.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/InterfaceDefinition.h"

namespace sonorel::ctl {
namespace {

using android::binder::Status;
using qelto::halvend::ISonorelServiceDefault;

TEST(Methods, AreThoseOfTheInterfaceInItsOrder) {
    std::vector<std::string> signatures;
    for (const Method& method : methods())
        signatures.push_back(method.signature);
    EXPECT_EQ(57U, signatures.size());
    EXPECT_EQ(test::definedSignatures(), signatures);
}

// Answers a few methods, each with another shape; to the rest it is no such transaction.
class FakeService : public ISonorelServiceDefault {
public:
    Status setMetaAudioModeWithDev(int8_t mode, int8_t device, int32_t* outResult) override {
        *outResult = mode * 100 + device;
        return Status::ok();
    }
    Status getMssTracksGain(const std::string& pkgName, std::vector<float>* gains,
                            int32_t* outResult) override {
        *outResult = static_cast<int32_t>(pkgName.size());
        for (float& gain : *gains)
            gain += 0.1F;
        return Status::ok();
    }
    Status getCurrentPosWithDev(int32_t scene, std::vector<float>* pos, int8_t device) override {
        pos->assign({static_cast<float>(scene), static_cast<float>(device)});
        return Status::ok();
    }
    Status setOutputDeviceForMss(int64_t deviceType) override {
        lastDeviceType = deviceType;
        return Status::ok();
    }
    Status registerClient(const android::sp<qelto::halvend::IHalvendClient>& client,
                          int8_t) override {
        sawNull = client == nullptr;
        return Status::ok();
    }

    int64_t lastDeviceType = 0;
    bool sawNull = false;
};

struct Outcome {
    std::string error;  // of the preparation
    Status status;
    std::string line;
};

Outcome run(FakeService& service, const char* name, const std::vector<std::string>& texts,
            std::optional<size_t> size = std::nullopt) {
    Outcome outcome;
    Json result;
    const Call call = findMethod(name)->prepare(texts, size, &outcome.error);
    if (call == nullptr) return outcome;
    outcome.status = call(service, &result);
    outcome.line = toLine(result);
    return outcome;
}

TEST(Methods, ArgumentsReachTheServiceAndResultsComeBack) {
    const android::sp<FakeService> service = new FakeService;
    EXPECT_EQ(R"({"return":-199})", run(*service, "setMetaAudioModeWithDev", {"-2", "1"}).line);
    EXPECT_EQ(R"({"pos":[3.0,-1.0]})",
              run(*service, "getCurrentPosWithDev", {"3", "0,0", "-1"}).line);
    EXPECT_EQ("{}", run(*service, "setOutputDeviceForMss", {"-9223372036854775808"}).line);
    EXPECT_EQ(std::numeric_limits<int64_t>::min(), service->lastDeviceType);
    EXPECT_EQ("{}", run(*service, "registerClient", {"null", "1"}).line);
    EXPECT_TRUE(service->sawNull);
}

TEST(Methods, OutVectorsComeFromTextOrSize) {
    const android::sp<FakeService> service = new FakeService;
    EXPECT_EQ(R"({"gains":[0.6,-0.9],"return":3})",
              run(*service, "getMssTracksGain", {"abc", "0.5,-1"}).line);
    EXPECT_EQ(R"({"gains":[0.1,0.1],"return":0})", run(*service, "getMssTracksGain", {""}, 2).line);
    EXPECT_EQ("has no vector that a size could be given for",
              run(*service, "getMetaAudioOn", {}, 2).error);
}

TEST(Methods, TextsThatDoNotFitAreRefused) {
    const android::sp<FakeService> service = new FakeService;
    EXPECT_EQ("takes 2 arguments, got 1", run(*service, "setMetaAudioModeWithDev", {"1"}).error);
    EXPECT_EQ("takes 1 arguments, got 2", run(*service, "getMssTracksGain", {"a", "1"}, 2).error);
    EXPECT_EQ("device: '200' is out of range for an integer of 8 bits",
              run(*service, "setMetaAudioModeWithDev", {"1", "200"}).error);
    EXPECT_NE("", run(*service, "registerClient", {"me", "1"}).error);
    EXPECT_EQ(nullptr, findMethod("setMetaAudioo"));
}

TEST(Methods, ErrorsOfTheServiceArePassedOn) {
    const android::sp<FakeService> service = new FakeService;
    const Outcome outcome = run(*service, "getMetaAudioOn", {});
    EXPECT_EQ("", outcome.error);
    EXPECT_EQ(android::UNKNOWN_TRANSACTION, outcome.status.transactionError());
    EXPECT_EQ("{}", outcome.line);
}

}  // namespace
}  // namespace sonorel::ctl
