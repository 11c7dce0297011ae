#pragma once

#include <utils/Errors.h>

namespace android {

class Parcel;

/** A record that can write itself into a parcel and read itself back. */
class Parcelable {
public:
    virtual ~Parcelable() = default;

    Parcelable() = default;
    Parcelable(const Parcelable&) = default;
    Parcelable& operator=(const Parcelable&) = default;
    Parcelable(Parcelable&&) = default;
    Parcelable& operator=(Parcelable&&) = default;

    virtual status_t writeToParcel(Parcel* parcel) const = 0;
    virtual status_t readFromParcel(const Parcel* parcel) = 0;
};

}  // namespace android
