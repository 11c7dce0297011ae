#define LOG_TAG "AMessage"

#include <log/log.h>
#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace android {

AMessage::AMessage() = default;

AMessage::AMessage(uint32_t what, const sp<const AHandler>& handler) : mWhat(what) {
    setTarget(handler);
}

void AMessage::setTarget(const sp<const AHandler>& handler) {
    if (handler == nullptr) {
        mHandler.clear();
        mLooper.clear();
    } else {
        mHandler = handler->getHandler();
        mLooper = handler->getLooper();
    }
}

void AMessage::set(const char* name, Value value) {
    const auto found = std::find_if(mItems.begin(), mItems.end(),
                                    [&](const Item& item) { return item.name == name; });
    if (found == mItems.end()) {
        mItems.push_back({name, std::move(value)});
    } else {
        found->value = std::move(value);
    }
}

const AMessage::Value* AMessage::find(const char* name) const {
    for (const Item& item : mItems) {
        if (item.name == name) return &item.value;
    }
    return nullptr;
}

template <typename T>
const T* AMessage::findAs(const char* name) const {
    return std::get_if<T>(find(name));
}

void AMessage::setInt32(const char* name, int32_t value) {
    set(name, value);
}

void AMessage::setInt64(const char* name, int64_t value) {
    set(name, value);
}

void AMessage::setSize(const char* name, size_t value) {
    set(name, Size{value});
}

void AMessage::setFloat(const char* name, float value) {
    set(name, value);
}

void AMessage::setDouble(const char* name, double value) {
    set(name, value);
}

void AMessage::setPointer(const char* name, void* value) {
    set(name, value);
}

void AMessage::setString(const char* name, const char* s, ssize_t len) {
    set(name, len < 0 ? std::string(s) : std::string(s, static_cast<size_t>(len)));
}

void AMessage::setString(const char* name, const AString& s) {
    set(name, std::string(s.c_str(), s.size()));
}

void AMessage::setObject(const char* name, const sp<RefBase>& obj) {
    set(name, obj);
}

void AMessage::setMessage(const char* name, const sp<AMessage>& obj) {
    set(name, Value(std::in_place_type<sp<AMessage>>, obj));
}

void AMessage::setRect(const char* name, int32_t left, int32_t top, int32_t right, int32_t bottom) {
    set(name, Rect{left, top, right, bottom});
}

bool AMessage::contains(const char* name) const {
    return find(name) != nullptr;
}

bool AMessage::findInt32(const char* name, int32_t* value) const {
    const auto* found = findAs<int32_t>(name);
    if (found != nullptr) *value = *found;
    return found != nullptr;
}

bool AMessage::findInt64(const char* name, int64_t* value) const {
    const auto* found = findAs<int64_t>(name);
    if (found != nullptr) *value = *found;
    return found != nullptr;
}

bool AMessage::findSize(const char* name, size_t* value) const {
    const auto* found = findAs<Size>(name);
    if (found != nullptr) *value = found->value;
    return found != nullptr;
}

bool AMessage::findFloat(const char* name, float* value) const {
    const auto* found = findAs<float>(name);
    if (found != nullptr) *value = *found;
    return found != nullptr;
}

bool AMessage::findDouble(const char* name, double* value) const {
    const auto* found = findAs<double>(name);
    if (found != nullptr) *value = *found;
    return found != nullptr;
}

bool AMessage::findPointer(const char* name, void** value) const {
    const auto* found = findAs<void*>(name);
    if (found != nullptr) *value = *found;
    return found != nullptr;
}

bool AMessage::findString(const char* name, AString* value) const {
    const auto* found = findAs<std::string>(name);
    if (found != nullptr) value->setTo(found->data(), found->size());
    return found != nullptr;
}

bool AMessage::findObject(const char* name, sp<RefBase>* obj) const {
    const auto* found = findAs<sp<RefBase>>(name);
    if (found != nullptr) *obj = *found;
    return found != nullptr;
}

bool AMessage::findMessage(const char* name, sp<AMessage>* obj) const {
    const auto* found = findAs<sp<AMessage>>(name);
    if (found != nullptr) *obj = *found;
    return found != nullptr;
}

bool AMessage::findRect(const char* name, int32_t* left, int32_t* top, int32_t* right,
                        int32_t* bottom) const {
    const auto* found = findAs<Rect>(name);
    if (found == nullptr) return false;
    *left = found->left;
    *top = found->top;
    *right = found->right;
    *bottom = found->bottom;
    return true;
}

status_t AMessage::post(int64_t delayUs) {
    // A message is often posted straight from new: when it cannot be queued, it goes with this.
    const sp<AMessage> self = this;
    const sp<ALooper> looper = mLooper.promote();
    if (looper == nullptr) {
        ALOGW("message %u has no looper to go to", mWhat);
        return -ENOENT;
    }
    looper->post(self, delayUs);
    return OK;
}

void AMessage::deliver() {
    const sp<AHandler> handler = mHandler.promote();
    if (handler == nullptr) {
        ALOGW("the handler of message %u is gone", mWhat);
        return;
    }
    handler->onMessageReceived(this);
}

sp<AMessage> AMessage::dup() const {
    const sp<AMessage> copy = new AMessage;
    copy->mWhat = mWhat;
    copy->mHandler = mHandler;
    copy->mLooper = mLooper;
    copy->mItems = mItems;
    for (Item& item : copy->mItems) {
        auto* message = std::get_if<sp<AMessage>>(&item.value);
        if (message != nullptr && *message != nullptr) *message = (*message)->dup();
    }
    return copy;
}

struct AMessage::Printer {
    const char* name;
    int32_t indent;

    AString line(const char* type, const AString& value) const {
        return AStringPrintf("%*s%s %s = %s\n", indent, "", type, name, value.c_str());
    }
    AString operator()(int32_t v) const { return line("int32_t", AStringPrintf("%d", v)); }
    AString operator()(int64_t v) const {
        return line("int64_t", AStringPrintf("%lld", static_cast<long long>(v)));
    }
    AString operator()(Size v) const { return line("size_t", AStringPrintf("%zu", v.value)); }
    AString operator()(float v) const { return line("float", AStringPrintf("%.9g", v)); }
    AString operator()(double v) const { return line("double", AStringPrintf("%.17g", v)); }
    AString operator()(void* v) const { return line("void *", AStringPrintf("%p", v)); }
    AString operator()(const std::string& v) const {
        return line("string", AStringPrintf("\"%s\"", v.c_str()));
    }
    AString operator()(const sp<RefBase>& v) const {
        return line("RefBase", AStringPrintf("%p", static_cast<void*>(v.get())));
    }
    AString operator()(const sp<AMessage>& v) const {
        return line("AMessage", v == nullptr ? "null" : v->debugString(indent));
    }
    AString operator()(const Rect& v) const {
        return line("Rect", AStringPrintf("(%d, %d, %d, %d)", v.left, v.top, v.right, v.bottom));
    }
};

AString AMessage::debugString(int32_t indent) const {
    AString text = AStringPrintf("AMessage(what = 0x%08x) = {\n", mWhat);
    for (const Item& item : mItems) {
        text.append(std::visit(Printer{item.name.c_str(), indent + 2}, item.value));
    }
    text.append(AStringPrintf("%*s}", indent, ""));
    return text;
}

}  // namespace android
