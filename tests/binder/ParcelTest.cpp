#include <limits>
#include <memory>

#include <android-base/unique_fd.h>
#include <binder/Parcel.h>
#include <binder/Status.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

using namespace android;

namespace {

constexpr int32_t kHuge = std::numeric_limits<int32_t>::max();

sp<IBinder> makeBinder() {
    return new BBinder();
}

// A parcel over a copy of `from`'s bytes without its objects, as a stranger could send it.
void copyBytesOnly(const Parcel& from, Parcel* to) {
    ASSERT_EQ(OK, to->setData(from.data(), from.dataSize()));
}

TEST(Parcel, FailedReadLeavesOutValueAndPosition) {
    Parcel parcel;
    parcel.writeInt32(1);
    parcel.setDataPosition(0);
    int64_t wide = 42;
    EXPECT_EQ(NOT_ENOUGH_DATA, parcel.readInt64(&wide));
    EXPECT_EQ(42, wide);
    EXPECT_EQ(1, parcel.readInt32());
    bool flag = true;
    EXPECT_EQ(NOT_ENOUGH_DATA, parcel.readBool(&flag));
    EXPECT_TRUE(flag);
    EXPECT_EQ(0, parcel.readInt32());
}

TEST(Parcel, NullableValuesKeepNullAndValueApart) {
    Parcel parcel;
    parcel.writeInt32Vector(std::unique_ptr<std::vector<int32_t>>());
    parcel.writeInt32Vector(std::make_optional<std::vector<int32_t>>({1, 2}));
    parcel.writeString16(std::make_unique<String16>("x"));
    parcel.writeString16(std::optional<String16>());
    parcel.setDataPosition(0);

    auto nullVector = std::make_optional<std::vector<int32_t>>({9});
    std::unique_ptr<std::vector<int32_t>> vector;
    std::unique_ptr<String16> text;
    auto nullText = std::make_unique<String16>("y");
    ASSERT_EQ(OK, parcel.readInt32Vector(&nullVector));
    ASSERT_EQ(OK, parcel.readInt32Vector(&vector));
    ASSERT_EQ(OK, parcel.readString16(&text));
    ASSERT_EQ(OK, parcel.readString16(&nullText));
    EXPECT_FALSE(nullVector.has_value());
    EXPECT_EQ((std::vector<int32_t>{1, 2}), *vector);
    EXPECT_EQ(String16("x"), *text);
    EXPECT_EQ(nullptr, nullText);
}

TEST(Parcel, NullWhereNoneMayBeIsUnexpectedNull) {
    Parcel parcel;
    parcel.writeInt32(-1);
    std::string utf8;
    String16 utf16;
    std::vector<float> floats;
    for (const auto& read : std::vector<std::function<status_t()>>{
                 [&] { return parcel.readUtf8FromUtf16(&utf8); },
                 [&] { return parcel.readString16(&utf16); },
                 [&] { return parcel.readFloatVector(&floats); },
                 [&] { return parcel.resizeOutVector(&floats); },
         }) {
        parcel.setDataPosition(0);
        EXPECT_EQ(UNEXPECTED_NULL, read());
    }
}

// A size is checked against the bytes that follow before anything is allocated for it.
TEST(Parcel, HostileSizesAreRefusedWithoutAllocation) {
    for (const int32_t size : {kHuge, kHuge - 1, 0x40000000, 0x3fffffff, 0x20000000, 3}) {
        SCOPED_TRACE(size);
        Parcel parcel;
        parcel.writeInt32(size);
        parcel.writeInt32(0);
        const auto refuses = [&](auto* out, auto read) {
            parcel.setDataPosition(0);
            EXPECT_EQ(NOT_ENOUGH_DATA, read(out));
            EXPECT_EQ(0U, out->capacity());
        };
        std::vector<int32_t> ints;
        std::vector<int64_t> longs;
        std::vector<double> doubles;
        std::vector<bool> bools;
        std::vector<String16> texts;
        std::vector<sp<IBinder>> binders;
        refuses(&ints, [&](auto* v) { return parcel.readInt32Vector(v); });
        refuses(&longs, [&](auto* v) { return parcel.readInt64Vector(v); });
        refuses(&doubles, [&](auto* v) { return parcel.readDoubleVector(v); });
        refuses(&bools, [&](auto* v) { return parcel.readBoolVector(v); });
        refuses(&texts, [&](auto* v) { return parcel.readString16Vector(v); });
        refuses(&binders, [&](auto* v) { return parcel.readStrongBinderVector(v); });

        parcel.setDataPosition(0);
        std::string utf8 = "kept";
        EXPECT_EQ(NOT_ENOUGH_DATA, parcel.readUtf8FromUtf16(&utf8));
        EXPECT_EQ("kept", utf8);
    }
}

TEST(Parcel, OutVectorIsBoundedByTheTransactionLimit) {
    constexpr auto kMost = static_cast<int32_t>(Parcel::kMaxTransactionBytes / sizeof(float));
    Parcel parcel;
    for (const int32_t size : {3, kMost, kMost + 1, kHuge})
        parcel.writeInt32(size);
    parcel.writeInt32(-1);
    parcel.setDataPosition(0);

    std::vector<float> vector = {9, 9, 9, 9};
    ASSERT_EQ(OK, parcel.resizeOutVector(&vector));
    EXPECT_EQ(std::vector<float>(3, 0.0F), vector);
    ASSERT_EQ(OK, parcel.resizeOutVector(&vector));
    EXPECT_EQ(static_cast<size_t>(kMost), vector.size());
    std::vector<float> refused;
    EXPECT_EQ(NO_MEMORY, parcel.resizeOutVector(&refused));
    EXPECT_EQ(NO_MEMORY, parcel.resizeOutVector(&refused));
    EXPECT_EQ(0U, refused.capacity());
    auto nullable = std::make_unique<std::vector<float>>();
    EXPECT_EQ(OK, parcel.resizeOutVector(&nullable));
    EXPECT_EQ(nullptr, nullable);
}

TEST(Parcel, AnyPositionIsSafe) {
    Parcel parcel;
    parcel.writeString16(String16("abc"));
    for (const size_t position : {size_t{1}, size_t{3}, size_t{12}, size_t{13}, size_t{1} << 31,
                                  std::numeric_limits<size_t>::max()}) {
        SCOPED_TRACE(position);
        parcel.setDataPosition(position);
        String16 text;
        EXPECT_NE(OK, parcel.readString16(&text));
        sp<IBinder> binder;
        EXPECT_NE(OK, parcel.readNullableStrongBinder(&binder));
        if (position >= parcel.dataSize()) {
            EXPECT_EQ(0U, parcel.dataAvail());
            EXPECT_EQ(nullptr, parcel.readInplace(1));
        }
    }
    EXPECT_EQ(BAD_VALUE, parcel.writeInt32(1));  // still at the last position
    EXPECT_EQ(BAD_VALUE, parcel.errorCheck());
}

TEST(Parcel, WriteBeyondTheEndFillsTheGapWithZeros) {
    Parcel parcel;
    parcel.writeInt32(-1);
    parcel.setDataPosition(12);
    parcel.writeInt32(-1);
    ASSERT_EQ(16U, parcel.dataSize());
    parcel.setDataPosition(4);
    EXPECT_EQ(0, parcel.readInt64());
}

TEST(Parcel, SmallContentsLieInsideTheParcel) {
    Parcel parcel;
    parcel.writeInterfaceToken(String16("qelto.halvend.ISonorelService"));
    parcel.writeUtf8AsUtf16(std::string("com.example.application.name"));
    parcel.writeFloatVector(std::vector<float>(16));
    const auto* begin = reinterpret_cast<const uint8_t*>(&parcel);
    EXPECT_GE(parcel.data(), begin);
    EXPECT_LE(parcel.data() + parcel.dataSize(), begin + sizeof(parcel));
}

TEST(Parcel, GrowsAndShrinksWithItsContents) {
    constexpr int kWords = 100'000;
    Parcel parcel;
    for (int i = 0; i < kWords; ++i)
        ASSERT_EQ(OK, parcel.writeInt32(i));
    parcel.setDataPosition(0);
    for (int i = 0; i < kWords; ++i)
        ASSERT_EQ(i, parcel.readInt32());
    ASSERT_EQ(OK, parcel.setDataSize(8));
    EXPECT_EQ(8U, parcel.dataPosition());
    ASSERT_EQ(OK, parcel.setDataSize(16));
    EXPECT_EQ(0, parcel.readInt64());
    EXPECT_EQ(BAD_VALUE, parcel.setDataSize(std::numeric_limits<size_t>::max()));
}

TEST(Parcel, TextIsConvertedAsLibutilsDoes) {
    const struct {
        std::string utf8;
        status_t status;
    } writes[] = {
            {"\xff", BAD_VALUE},          // no first byte
            {"a\xc3", BAD_VALUE},         // ends inside a character
            {"\xf0\x9f\x8e", BAD_VALUE},  // as does this
            {"plain", OK},
    };
    for (const auto& [utf8, want] : writes) {
        Parcel parcel;
        EXPECT_EQ(want, parcel.writeUtf8AsUtf16(utf8)) << utf8;
        EXPECT_EQ(want == OK ? 16U : 0U, parcel.dataSize()) << utf8;
    }
    constexpr char16_t kLone[] = {u'a', 0xd800, u'b', 0xdc00, u'\u20ac', 0xdbff};
    Parcel parcel;
    parcel.writeString16(kLone, std::size(kLone));
    parcel.setDataPosition(0);
    std::string seen;
    ASSERT_EQ(OK, parcel.readUtf8FromUtf16(&seen));
    EXPECT_EQ("ab\u20ac", seen);
}

TEST(Parcel, TextWithoutItsTerminatorIsRefused) {
    Parcel parcel;
    parcel.writeString16(String16("abc"));
    parcel.setDataPosition(8);
    parcel.writeInt32(-1);
    parcel.setDataPosition(0);
    std::string seen;
    EXPECT_EQ(BAD_VALUE, parcel.readUtf8FromUtf16(&seen));
    parcel.setDataPosition(8);
    EXPECT_EQ(nullptr, parcel.readCString());
}

// ---- Objects ----

TEST(ParcelObjects, BinderComesBackAsItself) {
    const sp<IBinder> binder = makeBinder();
    Parcel parcel;
    parcel.writeInt32(1);
    parcel.writeStrongBinder(binder);
    parcel.writeStrongBinder(nullptr);
    parcel.writeStrongBinderVector({binder});
    ASSERT_EQ(2U, parcel.ipcObjects().size());
    EXPECT_EQ(4U, parcel.ipcObjects()[0].position);

    parcel.setDataPosition(4);
    EXPECT_EQ(binder, parcel.readStrongBinder());
    const size_t atNull = parcel.dataPosition();
    sp<IBinder> seen = binder;
    EXPECT_EQ(UNEXPECTED_NULL, parcel.readStrongBinder(&seen));
    EXPECT_EQ(binder, seen);
    parcel.setDataPosition(atNull);
    EXPECT_EQ(OK, parcel.readNullableStrongBinder(&seen));
    EXPECT_EQ(nullptr, seen);
    std::vector<sp<IBinder>> vector;
    ASSERT_EQ(OK, parcel.readStrongBinderVector(&vector));
    EXPECT_EQ(binder, vector.at(0));
}

TEST(ParcelObjects, TheirBytesAloneAreWorthNothing) {
    Parcel parcel;
    parcel.writeStrongBinder(makeBinder());
    const size_t afterBinder = parcel.dataPosition();
    ASSERT_EQ(OK, parcel.writeFileDescriptor(STDIN_FILENO));
    Parcel forged;
    copyBytesOnly(parcel, &forged);
    // The record is the same for every binder and for null, so the most it can name is null.
    sp<IBinder> binder;
    EXPECT_EQ(UNEXPECTED_NULL, forged.readStrongBinder(&binder));
    forged.setDataPosition(afterBinder);
    EXPECT_EQ(BAD_TYPE, forged.readFileDescriptor());
    EXPECT_EQ(BAD_TYPE, [&] {
        forged.setDataPosition(0);
        forged.writeInt32(0);
        forged.setDataPosition(0);
        return forged.readNullableStrongBinder(&binder);
    }());
}

TEST(ParcelObjects, OneTypeIsNotReadAsTheOther) {
    Parcel parcel;
    parcel.writeStrongBinder(makeBinder());
    const size_t atDescriptor = parcel.dataPosition();
    ASSERT_EQ(OK, parcel.writeFileDescriptor(STDIN_FILENO));
    parcel.writeInt32(0);
    parcel.setDataPosition(0);
    EXPECT_EQ(BAD_TYPE, parcel.readFileDescriptor());
    parcel.setDataPosition(atDescriptor);
    sp<IBinder> binder;
    EXPECT_EQ(BAD_TYPE, parcel.readNullableStrongBinder(&binder));
}

TEST(ParcelObjects, OverwrittenOrCutOffObjectsNoLongerTravel) {
    Parcel parcel;
    for (int i = 0; i < 3; ++i)
        parcel.writeStrongBinder(makeBinder());
    parcel.setDataPosition(40);  // inside the second
    parcel.writeInt32(0);
    ASSERT_EQ(2U, parcel.ipcObjects().size());
    EXPECT_EQ(56U, parcel.ipcObjects()[1].position);
    ASSERT_EQ(OK, parcel.setDataSize(60));
    EXPECT_EQ(1U, parcel.ipcObjects().size());
    parcel.setDataPosition(0);
    const sp<IBinder> other = makeBinder();
    parcel.writeStrongBinder(other);
    ASSERT_EQ(1U, parcel.ipcObjects().size());
    EXPECT_EQ(other, parcel.ipcObjects()[0].binder);
}

TEST(ParcelObjects, AppendTakesTheWholeObjectsOfTheRange) {
    const sp<IBinder> binder = makeBinder();
    Parcel source;
    source.writeInt32(1);
    source.writeStrongBinder(binder);
    source.writeStrongBinder(makeBinder());
    Parcel target;
    target.writeInt64(2);
    ASSERT_EQ(OK, target.appendFrom(&source, 4, 32));
    ASSERT_EQ(1U, target.ipcObjects().size());
    target.setDataPosition(8);
    EXPECT_EQ(binder, target.readStrongBinder());
    EXPECT_EQ(BAD_VALUE, target.appendFrom(&source, 4, source.dataSize()));
    EXPECT_EQ(BAD_VALUE, target.appendFrom(&source, source.dataSize() + 1, 0));
}

TEST(ParcelDescriptors, AreDuplicatedOrOwned) {
    int ends[2];
    ASSERT_EQ(0, ::pipe2(ends, O_CLOEXEC));
    base::unique_fd reader(ends[0]);
    base::unique_fd kept;
    {
        Parcel parcel;
        ASSERT_EQ(OK, parcel.writeFileDescriptor(ends[1], /*takeOwnership=*/true));
        ASSERT_EQ(OK, parcel.writeUniqueFileDescriptor(reader));
        EXPECT_TRUE(parcel.hasFileDescriptors());
        parcel.setDataPosition(0);
        EXPECT_EQ(ends[1], parcel.readFileDescriptor());
        parcel.setDataPosition(0);
        ASSERT_EQ(OK, parcel.readUniqueFileDescriptor(&kept));
        EXPECT_EQ(1, ::write(kept.get(), "x", 1));
    }
    EXPECT_EQ(-1, ::fcntl(ends[1], F_GETFD));
    kept.reset();
    char byte = 0;
    EXPECT_EQ(1, ::read(reader.get(), &byte, 1));
    EXPECT_EQ(0, ::read(reader.get(), &byte, 1));  // no writing end is left
}

TEST(ParcelDescriptors, SixteenFitAndOneMoreFails) {
    Parcel parcel;
    EXPECT_EQ(BAD_VALUE, parcel.writeFileDescriptor(-1));
    for (size_t i = 0; i < Parcel::kMaxFileDescriptors; ++i) {
        ASSERT_EQ(OK, parcel.writeFileDescriptor(STDIN_FILENO));
    }
    const base::unique_fd extra(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
    const int taken = ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
    EXPECT_EQ(-EMFILE, parcel.writeUniqueFileDescriptor(extra));
    EXPECT_EQ(-EMFILE, parcel.writeFileDescriptor(taken, /*takeOwnership=*/true));
    EXPECT_EQ(-1, ::fcntl(taken, F_GETFD));
    Parcel other;
    ASSERT_EQ(OK, other.writeFileDescriptor(STDIN_FILENO));
    EXPECT_EQ(-EMFILE, other.appendFrom(&parcel, 0, parcel.dataSize()));
}

// ---- The transport's seam ----

class ReceiveBuffer {
public:
    explicit ReceiveBuffer(const Parcel& contents)
            : mWords(contents.dataSize() / 4), mObjects(contents.ipcObjects()) {
        std::memcpy(mWords.data(), contents.data(), contents.dataSize());
    }

    status_t lendTo(Parcel* parcel) { return lendTo(parcel, mObjects); }
    status_t lendTo(Parcel* parcel, std::vector<ParcelObject> objects, size_t offset = 0) {
        return parcel->ipcSetDataReference(data() + offset, mWords.size() * 4 - offset,
                                           std::move(objects), &ReceiveBuffer::release, this);
    }
    const uint8_t* data() const { return reinterpret_cast<const uint8_t*>(mWords.data()); }
    int releases() const { return mReleases; }

private:
    static void release(const uint8_t* data, size_t size, void* cookie) {
        auto* self = static_cast<ReceiveBuffer*>(cookie);
        EXPECT_EQ(self->data() + self->mWords.size() * 4, data + size);
        self->mReleases++;
    }

    std::vector<uint32_t> mWords;
    std::vector<ParcelObject> mObjects;
    int mReleases = 0;
};

TEST(ParcelReference, IsReadInPlaceAndReleasedOnce) {
    const sp<IBinder> binder = makeBinder();
    Parcel contents;
    contents.writeInt32(7);
    contents.writeStrongBinder(binder);
    ReceiveBuffer buffer(contents);
    {
        Parcel parcel;
        ASSERT_EQ(OK, buffer.lendTo(&parcel));
        EXPECT_EQ(buffer.data(), parcel.data());
        EXPECT_EQ(7, parcel.readInt32());
        EXPECT_EQ(binder, parcel.readStrongBinder());
        EXPECT_EQ(0, buffer.releases());
    }
    EXPECT_EQ(1, buffer.releases());
}

TEST(ParcelReference, AWriteCopiesItFirst) {
    for (const size_t words : {2U, 1000U}) {
        Parcel contents;
        for (size_t i = 0; i < words; ++i)
            contents.writeInt32(7);
        ReceiveBuffer buffer(contents);
        Parcel parcel;
        ASSERT_EQ(OK, buffer.lendTo(&parcel));
        ASSERT_EQ(OK, parcel.writeInt32(8));
        EXPECT_EQ(1, buffer.releases());
        EXPECT_EQ(words * 4, parcel.dataSize());
        EXPECT_EQ(7, parcel.readInt32());
        EXPECT_EQ(0, std::memcmp(contents.data(), buffer.data(), words * 4));
        ASSERT_EQ(OK, parcel.setDataSize(0));
        parcel.freeData();
        EXPECT_EQ(1, buffer.releases());
    }
}

TEST(ParcelReference, BadSlotsAreRefused) {
    Parcel contents;
    contents.writeStrongBinder(makeBinder());
    contents.writeStrongBinder(makeBinder());
    ReceiveBuffer buffer(contents);
    const ParcelObject first = {0, makeBinder(), nullptr};
    const ParcelObject overlapping = {8, makeBinder(), nullptr};
    const ParcelObject beyond = {36, makeBinder(), nullptr};
    const ParcelObject wrapping = {SIZE_MAX - 8, makeBinder(), nullptr};
    const ParcelObject empty = {0, nullptr, nullptr};
    int releases = 0;
    for (const std::vector<ParcelObject>& objects : std::vector<std::vector<ParcelObject>>{
                 {first, overlapping}, {overlapping, first}, {beyond}, {wrapping}, {empty}}) {
        Parcel parcel;
        EXPECT_EQ(BAD_VALUE, buffer.lendTo(&parcel, objects));
        EXPECT_EQ(++releases, buffer.releases());
        EXPECT_EQ(0U, parcel.dataSize());
    }
    Parcel parcel;
    EXPECT_EQ(BAD_VALUE, buffer.lendTo(&parcel, {}, /*offset=*/1));
}

// ---- Status ----

TEST(BinderStatus, TransportErrorsAreReturnedAndNeverWritten) {
    Parcel parcel;
    EXPECT_EQ(DEAD_OBJECT, binder::Status::fromStatusT(DEAD_OBJECT).writeToParcel(&parcel));
    EXPECT_EQ(0U, parcel.dataSize());
    // Nor may a reply pose as one.
    for (const int32_t word : {-129, 0, 0, 0})
        parcel.writeInt32(word);
    parcel.setDataPosition(0);
    binder::Status status;
    EXPECT_EQ(UNKNOWN_ERROR, status.readFromParcel(parcel));
    EXPECT_EQ(UNKNOWN_ERROR, status.transactionError());
}

TEST(BinderStatus, SkipsHeaderAndStackTrace) {
    Parcel parcel;
    for (const int32_t word : {-128, 12, 0, 0, 99})
        parcel.writeInt32(word);
    parcel.setDataPosition(0);
    EXPECT_EQ(binder::Status::EX_NONE, parcel.readExceptionCode());
    EXPECT_EQ(99, parcel.readInt32());

    parcel.freeData();
    for (const int32_t word : {-1, 0, 0, 8, 0, 99})
        parcel.writeInt32(word);
    parcel.setDataPosition(0);
    EXPECT_EQ(binder::Status::EX_SECURITY, parcel.readExceptionCode());
    EXPECT_EQ(99, parcel.readInt32());
}

TEST(BinderStatus, HostileBlockSizesFail) {
    for (const int32_t size : {-1, 13, kHuge}) {
        Parcel parcel;
        for (const int32_t word : {-128, size, 0, 0})
            parcel.writeInt32(word);
        parcel.setDataPosition(0);
        binder::Status status;
        EXPECT_NE(OK, status.readFromParcel(parcel)) << size;
        EXPECT_EQ(binder::Status::EX_TRANSACTION_FAILED, status.exceptionCode()) << size;
    }
}

}  // namespace
