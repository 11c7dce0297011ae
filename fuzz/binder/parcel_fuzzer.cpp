// Reads whatever the bytes say from whatever bytes there are. The first byte chooses between a
// sequence of reads over the rest and a call of the generated stubs with the rest as its parcel.

#include <limits>
#include <memory>

#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <binder/Status.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <log/log.h>
#include <qelto/halvend/BnHalvendClient.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "DefaultSonorelService.h"

using namespace android;
using qelto::halvend::BnHalvendClient;
using qelto::halvend::CallbackData;

namespace {

class EchoClient : public BnHalvendClient {
public:
    binder::Status onClientEvent(int32_t /*event*/, const CallbackData& input,
                                 CallbackData* answer) override {
        *answer = input;
        return binder::Status::ok();
    }
    binder::Status onClientEventOneWay(int32_t /*event*/, const CallbackData& /*input*/) override {
        return binder::Status::ok();
    }
};

// The bytes lie in a block of exactly their size, so that a read beyond it is seen. Objects come at
// random places, in the data or not.
void lend(FuzzedDataProvider& input, const std::vector<uint8_t>& bytes, Parcel* parcel) {
    std::vector<ParcelObject> objects;
    for (int i = input.ConsumeIntegralInRange(0, 3); i > 0; --i) {
        ParcelObject object;
        object.position = input.ConsumeIntegralInRange<size_t>(0, bytes.size() + 8);
        if (input.ConsumeBool()) {
            object.binder = new BBinder();
        } else {
            object.fd = std::make_shared<base::unique_fd>(::dup(STDIN_FILENO));
        }
        objects.push_back(std::move(object));
    }
    auto* data = static_cast<uint8_t*>(std::malloc(bytes.size()));
    if (!bytes.empty()) std::memcpy(data, bytes.data(), bytes.size());
    // Refused slots leave an empty parcel, which is as good.
    (void)parcel->ipcSetDataReference(
            data, bytes.size(), std::move(objects),
            [](const uint8_t* block, size_t, void*) { std::free(const_cast<uint8_t*>(block)); },
            nullptr);
}

template <typename T, typename Read>
void readInto(const Parcel& parcel, Read read) {
    T value{};
    (void)(parcel.*read)(&value);
}

void readText(const Parcel& parcel, int kind) {
    size_t len = 0;
    switch (kind) {
        case 0:
            return readInto<std::string, status_t (Parcel::*)(std::string*) const>(
                    parcel, &Parcel::readUtf8FromUtf16);
        case 1:
            return readInto<String16, status_t (Parcel::*)(String16*) const>(parcel,
                                                                             &Parcel::readString16);
        case 2:
            return readInto<String8, status_t (Parcel::*)(String8*) const>(parcel,
                                                                           &Parcel::readString8);
        case 3:
            if (const char* text = parcel.readCString(); text != nullptr) (void)std::strlen(text);
            return;
        case 4:
            (void)parcel.readString16Inplace(&len);
            return;
        default:
            (void)parcel.enforceInterface(String16("a.B"));
            return;
    }
}

void readVector(const Parcel& parcel, int kind) {
    switch (kind) {
        case 0:
            return readInto<std::vector<int8_t>, status_t (Parcel::*)(std::vector<int8_t>*) const>(
                    parcel, &Parcel::readByteVector);
        case 1:
            return readInto<std::vector<float>, status_t (Parcel::*)(std::vector<float>*) const>(
                    parcel, &Parcel::readFloatVector);
        case 2:
            return readInto<std::vector<bool>, status_t (Parcel::*)(std::vector<bool>*) const>(
                    parcel, &Parcel::readBoolVector);
        case 3:
            return readInto<std::vector<std::string>,
                            status_t (Parcel::*)(std::vector<std::string>*) const>(
                    parcel, &Parcel::readUtf8VectorFromUtf16Vector);
        case 4:
            return readInto<std::vector<sp<IBinder>>,
                            status_t (Parcel::*)(std::vector<sp<IBinder>>*) const>(
                    parcel, &Parcel::readStrongBinderVector);
        case 5:
            return readInto<std::optional<std::vector<int64_t>>,
                            status_t (Parcel::*)(std::optional<std::vector<int64_t>>*) const>(
                    parcel, &Parcel::readInt64Vector);
        default:
            return readInto<std::vector<float>, status_t (Parcel::*)(std::vector<float>*) const>(
                    parcel, &Parcel::resizeOutVector);
    }
}

void readObject(const Parcel& parcel, int kind) {
    switch (kind) {
        case 0:
            (void)parcel.readStrongBinder();
            return;
        case 1:
            (void)parcel.readFileDescriptor();
            return;
        case 2: {
            CallbackData record;
            (void)parcel.readParcelable(&record);
            return;
        }
        case 3: {
            std::unique_ptr<CallbackData> record;
            (void)parcel.readParcelable(&record);
            return;
        }
        default:
            (void)parcel.readExceptionCode();
            return;
    }
}

void changeParcel(FuzzedDataProvider& input, Parcel* parcel) {
    switch (input.ConsumeIntegralInRange(0, 4)) {
        case 0:
            (void)parcel->setDataSize(input.ConsumeIntegralInRange(0, 4096));
            return;
        case 1:
            parcel->writeStrongBinder(new BBinder());
            return;
        case 2: {
            Parcel copy;
            (void)copy.appendFrom(parcel, input.ConsumeIntegral<uint8_t>(),
                                  input.ConsumeIntegral<uint16_t>());
            return;
        }
        case 3:
            parcel->writeUtf8AsUtf16(input.ConsumeRandomLengthString(32));
            return;
        default:
            parcel->writeInt64(input.ConsumeIntegral<int64_t>());
            return;
    }
}

// A write far beyond the end is allowed and costs its gap, so only near ones are written to.
void readAtRandom(FuzzedDataProvider& input, const std::vector<uint8_t>& bytes) {
    Parcel parcel;
    lend(input, bytes, &parcel);
    while (input.remaining_bytes() > 0) {
        switch (input.ConsumeIntegralInRange(0, 6)) {
            case 0:
                parcel.setDataPosition(input.ConsumeIntegral<size_t>());
                (void)parcel.readInt64();
                parcel.setDataPosition(0);
                break;
            case 1:
                parcel.setDataPosition(input.ConsumeIntegralInRange(0, 4096));
                break;
            case 2:
                readText(parcel, input.ConsumeIntegralInRange(0, 5));
                break;
            case 3:
                readVector(parcel, input.ConsumeIntegralInRange(0, 6));
                break;
            case 4:
                readObject(parcel, input.ConsumeIntegralInRange(0, 4));
                break;
            case 5:
                changeParcel(input, &parcel);
                break;
            default:
                (void)parcel.readInplace(input.ConsumeIntegral<uint16_t>());
                break;
        }
    }
}

void callStub(FuzzedDataProvider& input, const std::vector<uint8_t>& bytes) {
    static const sp<BBinder>& sService = *new sp<BBinder>(new DefaultSonorelService());
    static const sp<BBinder>& sClient = *new sp<BBinder>(new EchoClient());
    const sp<BBinder>& target = input.ConsumeBool() ? sService : sClient;
    const auto code = input.ConsumeIntegralInRange<uint32_t>(0, 60);
    Parcel data;
    lend(input, bytes, &data);
    if (input.ConsumeBool()) {
        // A right token, so that the arguments are reached.
        Parcel called;
        called.writeInterfaceToken(target->getInterfaceDescriptor());
        (void)called.appendFrom(&data, 0, data.dataSize());
        Parcel reply;
        (void)target->transact(code, called, &reply);
        (void)reply.readExceptionCode();
    } else {
        (void)target->transact(code, data, nullptr, IBinder::FLAG_ONEWAY);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool sQuiet = [] {
        __android_log_set_logger([](const struct __android_logger_data*, const char*) {});
        return true;
    }();
    (void)sQuiet;
    FuzzedDataProvider input(data, size);
    const bool call = input.ConsumeBool();
    const auto bytes = input.ConsumeBytes<uint8_t>(input.ConsumeIntegral<uint16_t>());
    if (call) {
        callStub(input, bytes);
    } else {
        readAtRandom(input, bytes);
    }
    return 0;
}
