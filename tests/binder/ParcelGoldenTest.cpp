// The bytes of a parcel are a contract between builds: what is written here was worked out by hand
// from the platform's layout, word by word, and never follows the code.

#include <memory>

#include <binder/Parcel.h>
#include <binder/Status.h>
#include <gtest/gtest.h>
#include <qelto/halvend/CallbackData.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::binder::Status;
using qelto::halvend::CallbackData;

namespace {

struct Golden {
    int line;
    const char* what;
    std::function<void(Parcel&)> write;
    std::string hex;  // blanks between words are ignored
    std::function<status_t(const Parcel&)> read;
};

CallbackData fullRecord() {
    CallbackData record;
    record.status = 7;
    record.enable = true;
    record.mode = -2;
    record.pkgName = "a.b";
    record.scene = 13;
    record.intValue = 5;
    record.spMode = 2;
    record.isPlaying = true;
    record.playState = 3;
    record.data = {1.5F, -1.0F};
    record.intValue2 = -1;
    record.strValue = "\u00f6";
    record.splitScreenEnabled = true;
    record.splitScreenParam1 = 256;
    record.splitScreenParam2 = 2;
    record.strValue2 = "";
    record.mssEnable = true;
    record.renderMode = 4;
    record.gains = {0.5F};
    return record;
}

constexpr char kFullRecordHex[] =
        "01000000 6c000000 07000000 01000000 feffffff 03000000 61002e00 62000000 0d000000 05000000"
        "02000000 01000000 03000000 02000000 0000c03f 000080bf ffffffff 01000000 f6000000 01000000"
        "00010000 02000000 00000000 00000000 01000000 04000000 01000000 0000003f";

status_t readFullRecord(const Parcel& parcel) {
    CallbackData seen;
    if (const status_t status = parcel.readParcelable(&seen); status != OK) return status;
    const CallbackData want = fullRecord();
    EXPECT_EQ(want.pkgName, seen.pkgName);
    EXPECT_EQ(want.strValue, seen.strValue);
    EXPECT_EQ(want.data, seen.data);
    EXPECT_EQ(want.gains, seen.gains);
    EXPECT_EQ(want.mode, seen.mode);
    EXPECT_EQ(want.renderMode, seen.renderMode);
    return OK;
}

// Reads a value and compares it with what was written.
template <typename T>
std::function<status_t(const Parcel&)> expect(status_t (Parcel::*read)(T*) const, T want) {
    return [=](const Parcel& parcel) {
        T seen{};
        const status_t status = (parcel.*read)(&seen);
        if (status == OK) {
            EXPECT_TRUE(want == seen);
        }
        return status;
    };
}

status_t expectStatus(const Parcel& parcel, const std::string& want) {
    Status seen;
    const status_t status = seen.readFromParcel(parcel);
    if (status == OK) {
        EXPECT_EQ(want, seen.toString8().c_str());
    }
    return status;
}

std::vector<Golden> goldens() {
    return {
            {__LINE__, "interface token", [](Parcel& p) { p.writeInterfaceToken(String16("a.B")); },
             "00000080 ffffffff 54535953 03000000 61002e00 42000000",
             [](const Parcel& p) {
                 return p.enforceInterface(String16("a.B")) ? OK : android::BAD_TYPE;
             }},
            {__LINE__, "text with one, two, three and four byte characters",
             [](Parcel& p) { p.writeUtf8AsUtf16(std::string("h\u00e9\u20ac\U0001f3a7")); },
             "05000000 6800e900 ac203cd8 a7df0000",
             expect(&Parcel::readUtf8FromUtf16, std::string("h\u00e9\u20ac\U0001f3a7"))},
            {__LINE__, "empty text", [](Parcel& p) { p.writeUtf8AsUtf16(std::string()); },
             "00000000 00000000", expect(&Parcel::readUtf8FromUtf16, std::string())},
            {__LINE__, "text with a zero inside",
             [](Parcel& p) { p.writeUtf8AsUtf16(std::string("a\0b", 3)); },
             "03000000 61000000 62000000",
             expect(&Parcel::readUtf8FromUtf16, std::string("a\0b", 3))},
            {__LINE__, "null text",
             [](Parcel& p) { p.writeUtf8AsUtf16(std::unique_ptr<std::string>()); }, "ffffffff",
             [](const Parcel& p) {
                 auto seen = std::make_unique<std::string>("not null");
                 const status_t status = p.readUtf8FromUtf16(&seen);
                 if (status == OK) {
                     EXPECT_EQ(nullptr, seen);
                 }
                 return status;
             }},
            {__LINE__, "true", [](Parcel& p) { p.writeBool(true); }, "01000000",
             expect(&Parcel::readBool, true)},
            {__LINE__, "negative byte", [](Parcel& p) { p.writeByte(-2); }, "feffffff",
             expect<int8_t>(&Parcel::readByte, -2)},
            {__LINE__, "character", [](Parcel& p) { p.writeChar(u'\u20ac'); }, "ac200000",
             expect(&Parcel::readChar, u'\u20ac')},
            {__LINE__, "64 bits", [](Parcel& p) { p.writeInt64(-2); }, "feffffff ffffffff",
             expect<int64_t>(&Parcel::readInt64, -2)},
            {__LINE__, "double", [](Parcel& p) { p.writeDouble(-2.5); }, "00000000 000004c0",
             expect(&Parcel::readDouble, -2.5)},
            {__LINE__, "C string", [](Parcel& p) { p.writeCString("abcd"); }, "61626364 00000000",
             [](const Parcel& p) {
                 const char* seen = p.readCString();
                 if (seen != nullptr) {
                     EXPECT_STREQ("abcd", seen);
                 }
                 return seen != nullptr ? OK : android::NOT_ENOUGH_DATA;
             }},
            {__LINE__, "float vector",
             [](Parcel& p) {
                 p.writeFloatVector({1.0F, -2.5F});
             },
             "02000000 0000803f 000020c0",
             expect(&Parcel::readFloatVector, std::vector<float>{1.0F, -2.5F})},
            {__LINE__, "byte vector",
             [](Parcel& p) {
                 p.writeByteVector(std::vector<int8_t>{1, 2, 3, 4, -1});
             },
             "05000000 01020304 ff000000",
             expect<std::vector<int8_t>>(&Parcel::readByteVector, {1, 2, 3, 4, -1})},
            {__LINE__, "bool vector",
             [](Parcel& p) {
                 p.writeBoolVector({true, false});
             },
             "02000000 01000000 00000000",
             expect(&Parcel::readBoolVector, std::vector<bool>{true, false})},
            {__LINE__, "text vector",
             [](Parcel& p) {
                 p.writeUtf8VectorAsUtf16Vector({"a", ""});
             },
             "02000000 01000000 61000000 00000000 00000000",
             expect(&Parcel::readUtf8VectorFromUtf16Vector, std::vector<std::string>{"a", ""})},
            {__LINE__, "null binder", [](Parcel& p) { p.writeStrongBinder(nullptr); },
             "852a6273 00000000 00000000 00000000 00000000 00000000 00000000",
             [](const Parcel& p) {
                 sp<android::IBinder> seen;
                 return p.readNullableStrongBinder(&seen);
             }},
            {__LINE__, "ok status", [](Parcel& p) { p.writeNoException(); }, "00000000",
             [](const Parcel& p) { return expectStatus(p, "No error"); }},
            {__LINE__, "exception without a message",
             [](Parcel& p) {
                 EXPECT_EQ(OK,
                           Status::fromExceptionCode(Status::EX_NULL_POINTER).writeToParcel(&p));
             },
             "fcffffff 00000000 00000000 00000000",
             [](const Parcel& p) { return expectStatus(p, "Status(-4, EX_NULL_POINTER): ''"); }},
            {__LINE__, "service-specific error",
             [](Parcel& p) {
                 EXPECT_EQ(OK, Status::fromServiceSpecificError(7, "no").writeToParcel(&p));
             },
             "f8ffffff 02000000 6e006f00 00000000 00000000 07000000",
             [](const Parcel& p) {
                 return expectStatus(p, "Status(-8, EX_SERVICE_SPECIFIC): '7: no'");
             }},
            {__LINE__, "callback record with every field set",
             [](Parcel& p) { EXPECT_EQ(OK, p.writeParcelable(fullRecord())); }, kFullRecordHex,
             readFullRecord},
    };
}

std::string toHex(const Parcel& parcel) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    for (size_t i = 0; i < parcel.dataSize(); ++i) {
        hex += kDigits[parcel.data()[i] >> 4];
        hex += kDigits[parcel.data()[i] & 15];
    }
    return hex;
}

std::string withoutBlanks(std::string hex) {
    hex.erase(std::remove(hex.begin(), hex.end(), ' '), hex.end());
    return hex;
}

TEST(ParcelGolden, EveryValueHasItsBytesAndReadsBack) {
    for (const Golden& golden : goldens()) {
        SCOPED_TRACE(testing::Message() << "table line " << golden.line << ": " << golden.what);
        Parcel parcel;
        golden.write(parcel);
        EXPECT_EQ(withoutBlanks(golden.hex), toHex(parcel));
        EXPECT_EQ(OK, parcel.errorCheck());
        parcel.setDataPosition(0);
        EXPECT_EQ(OK, golden.read(parcel));
        EXPECT_EQ(parcel.dataSize(), parcel.dataPosition());
    }
}

// The bytes lie in a block of exactly their size, so that a sanitizer sees a read beyond it.
TEST(ParcelGolden, EveryTruncationFailsCleanly) {
    for (const Golden& golden : goldens()) {
        Parcel whole;
        golden.write(whole);
        for (size_t size = 0; size < whole.dataSize(); ++size) {
            SCOPED_TRACE(testing::Message() << "table line " << golden.line << ": " << golden.what
                                            << ", first " << size << " bytes");
            auto* bytes = new uint8_t[size];
            std::copy(whole.data(), whole.data() + size, bytes);
            Parcel parcel;
            ASSERT_EQ(OK,
                      parcel.ipcSetDataReference(
                              bytes, size, {},
                              [](const uint8_t* data, size_t, void*) { delete[] data; }, nullptr));
            EXPECT_NE(OK, golden.read(parcel));
        }
    }
}

TEST(ParcelGolden, WrongTokenOrHeaderIsRefused) {
    const struct {
        int line;
        std::function<void(Parcel&)> write;
    } cases[] = {
            {__LINE__, [](Parcel&) {}},
            {__LINE__, [](Parcel& p) { p.writeInterfaceToken(String16("a.C")); }},
            {__LINE__, [](Parcel& p) { p.writeInterfaceToken(String16("a.BB")); }},
            {__LINE__, [](Parcel& p) { p.writeInterfaceToken(String16("")); }},
            {__LINE__,
             [](Parcel& p) {
                 p.writeInterfaceToken(String16("a.B"));
                 p.setDataPosition(8);
                 p.writeInt32(0x53595355);
             }},
            {__LINE__,
             [](Parcel& p) {
                 for (const int word : {0, -1, 0x53595354, -1})
                     p.writeInt32(word);
             }},
    };
    for (const auto& wrong : cases) {
        SCOPED_TRACE(testing::Message() << "table line " << wrong.line);
        Parcel parcel;
        wrong.write(parcel);
        parcel.setDataPosition(0);
        EXPECT_FALSE(parcel.enforceInterface(String16("a.B")));
    }
}

// Neither the caller's policy nor whom it charges decides whether a call is let in.
TEST(ParcelGolden, AnyPolicyAndWorkSourceAreAccepted) {
    Parcel parcel;
    parcel.writeInterfaceToken(String16("a.B"));
    parcel.setDataPosition(0);
    parcel.writeInt32(0x42);
    parcel.writeInt32(10001);
    parcel.setDataPosition(0);
    EXPECT_TRUE(parcel.enforceInterface(String16("a.B")));
}

}  // namespace
