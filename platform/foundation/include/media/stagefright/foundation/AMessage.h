#pragma once

#include <media/stagefright/foundation/ABase.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>

#include <string>
#include <variant>
#include <vector>

namespace android {

class LooperQueue;
struct ALooper;
struct AHandler;
class AString;

// A number, `what`, with named and typed entries, to be handed to a handler on its looper's thread.
// The target is held weakly. A message is filled by one thread, and left alone once it is posted.
struct AMessage : public RefBase {
    AMessage();
    AMessage(uint32_t what, const sp<const AHandler>& handler);

    void setWhat(uint32_t what) { mWhat = what; }
    uint32_t what() const { return mWhat; }

    // The looper is the one with which the handler is registered at this moment.
    void setTarget(const sp<const AHandler>& handler);

    // Removes the entries; `what` and the target stay.
    void clear() { mItems.clear(); }

    // Setting a name again replaces its entry, whatever its type. The message shares objects and
    // messages with the caller; a pointer is stored as it is.
    void setInt32(const char* name, int32_t value);
    void setInt64(const char* name, int64_t value);
    void setSize(const char* name, size_t value);
    void setFloat(const char* name, float value);
    void setDouble(const char* name, double value);
    void setPointer(const char* name, void* value);
    void setString(const char* name, const char* s, ssize_t len = -1);
    void setString(const char* name, const AString& s);
    void setObject(const char* name, const sp<RefBase>& obj);
    void setMessage(const char* name, const sp<AMessage>& obj);
    void setRect(const char* name, int32_t left, int32_t top, int32_t right, int32_t bottom);

    // False, and the out-value untouched, when there is no entry of this name and type.
    bool contains(const char* name) const;
    bool findInt32(const char* name, int32_t* value) const;
    bool findInt64(const char* name, int64_t* value) const;
    bool findSize(const char* name, size_t* value) const;
    bool findFloat(const char* name, float* value) const;
    bool findDouble(const char* name, double* value) const;
    bool findPointer(const char* name, void** value) const;
    bool findString(const char* name, AString* value) const;
    bool findObject(const char* name, sp<RefBase>* obj) const;
    bool findMessage(const char* name, sp<AMessage>* obj) const;
    bool findRect(const char* name, int32_t* left, int32_t* top, int32_t* right,
                  int32_t* bottom) const;

    size_t countEntries() const { return mItems.size(); }

    // Queues this message behind everything that is due at the same time or earlier. OK, or -ENOENT
    // with a log line when the target's looper is gone or there never was one.
    status_t post(int64_t delayUs = 0);

    // A copy with the same target. Contained messages are copied too, objects shared.
    sp<AMessage> dup() const;

    // For logs: the number and the entries, one a line, indented by `indent` blanks.
    AString debugString(int32_t indent = 0) const;

protected:
    ~AMessage() override = default;

private:
    friend class LooperQueue;

    struct Rect {
        int32_t left, top, right, bottom;
    };
    // A type of its own, because size_t is one of the integer types.
    struct Size {
        size_t value;
    };
    using Value = std::variant<int32_t, int64_t, Size, float, double, void*, std::string,
                               sp<RefBase>, sp<AMessage>, Rect>;
    struct Item {
        std::string name;
        Value value;
    };
    struct Printer;

    void set(const char* name, Value value);
    const Value* find(const char* name) const;
    template <typename T>
    const T* findAs(const char* name) const;
    void deliver();

    uint32_t mWhat = 0;
    wp<AHandler> mHandler;
    wp<ALooper> mLooper;
    // A handful of entries: a search from the front beats a map.
    std::vector<Item> mItems;

    DISALLOW_EVIL_CONSTRUCTORS(AMessage);
};

}  // namespace android
