// Calls inside one process: BBinder and the generated stubs over it.

#include <limits>
#include <memory>

#include <android-base/unique_fd.h>
#include <binder/IResultReceiver.h>
#include <binder/IShellCallback.h>
#include <binder/Parcel.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <qelto/halvend/BnHalvendClient.h>
#include <qelto/halvend/BnSonorelService.h>
#include <qelto/halvend/BpHalvendClient.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "binder/FakeRemoteBinder.h"

using namespace android;
using binder::Status;
using qelto::halvend::BnHalvendClient;
using qelto::halvend::CallbackData;
using qelto::halvend::IHalvendClient;
using qelto::halvend::ISonorelService;
using sonorel::test::FakeRemoteBinder;

namespace {

class EchoClient : public BnHalvendClient {
public:
    Status onClientEvent(int32_t event, const CallbackData& input, CallbackData* answer) override {
        if (event < 0) return Status::fromServiceSpecificError(event, "negative event");
        *answer = input;
        answer->status = event;
        return Status::ok();
    }
    Status onClientEventOneWay(int32_t event, const CallbackData& /*input*/) override {
        lastOneWay = event;
        return Status::ok();
    }
    status_t dump(int fd, const Vector<String16>& args) override {
        for (const String16& arg : args)
            ::dprintf(fd, "[%s]", String8(arg).c_str());
        return OK;
    }

    int32_t lastOneWay = -1;
};

class Receiver : public BnResultReceiver {
public:
    void send(int32_t resultCode) override { result = resultCode; }
    int32_t result = 1;
};

Parcel* withToken(Parcel* parcel, const String16& descriptor) {
    parcel->writeInterfaceToken(descriptor);
    return parcel;
}

TEST(LocalBinder, InterfaceCastFindsTheObjectOrMakesAProxy) {
    const sp<EchoClient> client = new EchoClient();
    const sp<IBinder> binder = IInterface::asBinder(client);
    EXPECT_EQ(client, interface_cast<IHalvendClient>(binder));
    EXPECT_EQ(nullptr, interface_cast<IHalvendClient>(sp<IBinder>()));
    EXPECT_EQ(nullptr, IInterface::asBinder(sp<IHalvendClient>()));

    const sp<IBinder> remote = new FakeRemoteBinder(client);
    const sp<IHalvendClient> proxy = interface_cast<IHalvendClient>(remote);
    ASSERT_NE(nullptr, proxy);
    EXPECT_EQ(remote, IInterface::asBinder(proxy));
    // An object of another interface is not taken for this one.
    EXPECT_NE(static_cast<void*>(client.get()),
              static_cast<void*>(interface_cast<ISonorelService>(binder).get()));
}

TEST(LocalBinder, ProxyAndStubCarryTheRecordBothWays) {
    const sp<EchoClient> client = new EchoClient();
    const sp<IBinder> remote = new FakeRemoteBinder(client);
    const sp<IHalvendClient> proxy = interface_cast<IHalvendClient>(remote);
    CallbackData input;
    input.pkgName = "com.example.\u00e9";
    input.data = {1.0F, 2.0F, 3.0F};
    CallbackData answer;
    ASSERT_TRUE(proxy->onClientEvent(5, input, &answer).isOk());
    EXPECT_EQ(5, answer.status);
    EXPECT_EQ(input.pkgName, answer.pkgName);
    EXPECT_EQ(input.data, answer.data);

    const Status refused = proxy->onClientEvent(-3, input, &answer);
    EXPECT_EQ(-3, refused.serviceSpecificErrorCode());
    EXPECT_STREQ("negative event", refused.exceptionMessage().c_str());

    ASSERT_TRUE(proxy->onClientEventOneWay(8, input).isOk());
    EXPECT_EQ(8, client->lastOneWay);
}

TEST(LocalBinder, BrokenCallsAreAnsweredWithTheirError) {
    const sp<EchoClient> client = new EchoClient();
    Parcel reply;
    Parcel empty;
    EXPECT_EQ(BAD_TYPE, client->transact(1, empty, &reply));
    Parcel wrong;
    withToken(&wrong, ISonorelService::descriptor);
    EXPECT_EQ(BAD_TYPE, client->transact(1, wrong, &reply));
    Parcel brief;
    withToken(&brief, IHalvendClient::descriptor)->writeInt32(1);
    EXPECT_EQ(NOT_ENOUGH_DATA, client->transact(1, brief, &reply));
    EXPECT_EQ(UNKNOWN_TRANSACTION, client->transact(3, brief, &reply));
    EXPECT_EQ(0U, reply.dataSize());

    Parcel null;
    withToken(&null, IHalvendClient::descriptor)->writeInt32(1);
    null.writeInt32(0);
    EXPECT_EQ(OK, client->transact(1, null, &reply));
    EXPECT_EQ(Status::EX_NULL_POINTER, reply.readExceptionCode());
}

// A proxy's caller may not want the reply; the method writes one all the same.
TEST(LocalBinder, ReplyMayBeLeftOut) {
    const sp<EchoClient> client = new EchoClient();
    Parcel data;
    withToken(&data, IHalvendClient::descriptor)->writeInt32(1);
    ASSERT_EQ(OK, data.writeParcelable(CallbackData()));
    EXPECT_EQ(OK, client->transact(1, data, nullptr, IBinder::FLAG_ONEWAY));
    EXPECT_EQ(OK, client->transact(IBinder::INTERFACE_TRANSACTION, data, nullptr));
}

TEST(LocalBinder, AnswersTheBuiltInCalls) {
    const sp<EchoClient> client = new EchoClient();
    Parcel data;
    Parcel reply;
    EXPECT_EQ(OK, client->transact(IBinder::PING_TRANSACTION, data, &reply));
    EXPECT_EQ(OK, client->transact(IBinder::INTERFACE_TRANSACTION, data, &reply));
    EXPECT_EQ(IHalvendClient::descriptor, reply.readString16());
    EXPECT_TRUE(client->isBinderAlive());
    EXPECT_EQ(client.get(), client->localBinder());
    EXPECT_EQ(nullptr, client->remoteBinder());

    class Recipient : public IBinder::DeathRecipient {
        void binderDied(const wp<IBinder>& /*who*/) override {}
    };
    const sp<Recipient> recipient = new Recipient();
    EXPECT_EQ(INVALID_OPERATION, client->linkToDeath(recipient));
    EXPECT_EQ(INVALID_OPERATION, client->unlinkToDeath(recipient));
}

TEST(LocalBinder, DumpTakesDescriptorAndArguments) {
    const sp<EchoClient> client = new EchoClient();
    int ends[2];
    ASSERT_EQ(0, ::pipe2(ends, O_CLOEXEC));
    const base::unique_fd reader(ends[0]);
    {
        Parcel data;
        ASSERT_EQ(OK, data.writeFileDescriptor(ends[1], /*takeOwnership=*/true));
        data.writeInt32(2);
        data.writeString16(String16("-a"));
        data.writeString16(String16("b c"));
        EXPECT_EQ(OK, client->transact(IBinder::DUMP_TRANSACTION, data, nullptr));
    }
    char text[32] = {};
    EXPECT_EQ(9, ::read(reader.get(), text, sizeof(text)));
    EXPECT_STREQ("[-a][b c]", text);
}

// Reading ends at the first argument that is not there, however many the count claims.
TEST(LocalBinder, ArgumentsThatAreNotThereEndTheCall) {
    const sp<IBinder> object = new BBinder();
    struct Case {
        std::vector<int32_t> words;  // the count and what follows it
        size_t more;                 // bytes behind them
        status_t answer;
    };
    constexpr int32_t kMost = std::numeric_limits<int32_t>::max();
    for (const auto& [code, descriptors] : {std::pair(IBinder::DUMP_TRANSACTION, 1),
                                            std::pair(IBinder::SHELL_COMMAND_TRANSACTION, 3)}) {
        for (const auto& [words, more, answer] :
             {Case{{}, 0, NOT_ENOUGH_DATA}, Case{{kMost}, 1, NOT_ENOUGH_DATA},
              Case{{kMost, 0, 0}, 3, NOT_ENOUGH_DATA}, Case{{2, -1, 0}, 0, UNEXPECTED_NULL},
              Case{{-1, 0, 0}, 0, BAD_VALUE}}) {
            Parcel data;
            for (int i = 0; i < descriptors; ++i)
                ASSERT_EQ(OK, data.writeFileDescriptor(STDOUT_FILENO));
            for (const int32_t word : words)
                data.writeInt32(word);
            data.setDataSize(data.dataSize() + more);
            EXPECT_EQ(answer, object->transact(code, data, nullptr)) << words.size() << code;
        }
        Parcel none;
        EXPECT_EQ(BAD_TYPE, object->transact(code, none, nullptr));
    }
}

TEST(LocalBinder, ShellCommandReachesTheObjectAndItsResultComesBack) {
    const sp<EchoClient> client = new EchoClient();
    const sp<Receiver> receiver = new Receiver();
    Vector<String16> args;
    args.add(String16("help"));
    EXPECT_EQ(OK, IBinder::shellCommand(client, STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO, args,
                                        nullptr, receiver));
    EXPECT_EQ(INVALID_OPERATION, receiver->result);  // this object has no commands
    EXPECT_EQ(BAD_VALUE, IBinder::shellCommand(client, -1, STDOUT_FILENO, STDERR_FILENO, args,
                                               nullptr, receiver));
}

TEST(LocalBinder, AttachedObjectsAreCleanedUpWithTheBinder) {
    static int sCleaned;
    sCleaned = 0;
    const auto cleanUp = [](const void*, void* object, void*) {
        sCleaned += *static_cast<int*>(object);
    };
    int one = 1;
    int two = 2;
    const int ids[3] = {};
    {
        const sp<IBinder> binder = new BBinder();
        EXPECT_EQ(nullptr, binder->findObject(&ids[0]));
        EXPECT_EQ(nullptr, binder->detachObject(&ids[0]));
        EXPECT_EQ(nullptr, binder->attachObject(&ids[0], &one, nullptr, cleanUp));
        EXPECT_EQ(nullptr, binder->attachObject(&ids[1], &two, nullptr, cleanUp));
        EXPECT_EQ(&one, binder->attachObject(&ids[0], &two, nullptr, cleanUp));
        EXPECT_EQ(&two, binder->findObject(&ids[1]));
        EXPECT_EQ(&two, binder->detachObject(&ids[1]));
        EXPECT_EQ(nullptr, binder->findObject(&ids[2]));
        EXPECT_EQ(0, sCleaned);
    }
    EXPECT_EQ(1, sCleaned);
}

}  // namespace
