#define LOG_TAG "SonorelText"

#include <qelto/GameListText.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <string_view>

#include <log/log.h>
#include <nlohmann/json.hpp>

#include "JsonWriter.h"

namespace android {
namespace {

using Json = nlohmann::json;

constexpr int kMaxDepth = 32;
constexpr size_t kLoggedBytes = 64;

// Collects packages and counts what could not be read.
class GameList {
public:
    GameList(std::map<std::string, int>* outMap, std::vector<std::string>* outPkgs)
            : mMap(outMap), mPkgs(outPkgs) {}

    void add(const std::string& pkg, int value) {
        if (mMap->insert_or_assign(pkg, value).second) mPkgs->push_back(pkg);
    }

    void skip(std::string_view what) {
        if (mSkipped++ == 0) mFirstSkipped = what.substr(0, kLoggedBytes);
    }

    void logSkipped() const {
        if (mSkipped == 0) return;
        ALOGW("game list: %zu packages read, %zu entries skipped, the first is '%s'", mPkgs->size(),
              mSkipped, mFirstSkipped.c_str());
    }

private:
    std::map<std::string, int>* const mMap;
    std::vector<std::string>* const mPkgs;
    size_t mSkipped = 0;
    std::string mFirstSkipped;
};

// Takes the integers of the outermost object as the parser meets them, so that a text that breaks
// off has given what stood before. Builds no tree; the parser's own stack is a bit a level.
class GameListSax : public Json::json_sax_t {
public:
    explicit GameListSax(GameList* list) : mList(list) {}

    bool null() override { return unusable(); }
    bool boolean(bool /*value*/) override { return unusable(); }
    bool number_float(double /*value*/, const std::string& /*text*/) override { return unusable(); }
    bool string(std::string& /*value*/) override { return unusable(); }
    bool binary(Json::binary_t& /*value*/) override { return unusable(); }

    bool number_integer(Json::number_integer_t value) override {
        if (value < std::numeric_limits<int>::min()) return unusable();
        return integer(static_cast<int>(value));
    }

    bool number_unsigned(Json::number_unsigned_t value) override {
        if (value > static_cast<unsigned>(std::numeric_limits<int>::max())) return unusable();
        return integer(static_cast<int>(value));
    }

    bool start_object(std::size_t /*elements*/) override {
        if (mDepth == 0) mInObject = true;
        return descend();
    }
    bool end_object() override { return ascend(); }
    bool start_array(std::size_t /*elements*/) override { return descend(); }
    bool end_array() override { return ascend(); }

    bool key(std::string& name) override {
        if (mDepth == 1) mKey.swap(name);
        return true;
    }

    bool parse_error(std::size_t position, const std::string& /*token*/,
                     const Json::exception& error) override {
        ALOGW("game list: not JSON from byte %zu on: %.*s", position,
              static_cast<int>(2 * kLoggedBytes), error.what());
        return false;
    }

private:
    bool integer(int value) {
        if (mDepth != 1 || !mInObject) return unusable();
        mList->add(mKey, value);
        return true;
    }

    bool unusable() {
        if (mDepth == 1 && mInObject) mList->skip(mKey);
        if (mDepth == 0 || (mDepth == 1 && !mInObject)) mList->skip("(no object)");
        return true;
    }

    bool descend() {
        if (mDepth == 1) (void)unusable();  // A list or an object where the integer should be.
        if (++mDepth <= kMaxDepth) return true;
        ALOGW("game list: nested deeper than %d levels, the rest is ignored", kMaxDepth);
        return false;
    }

    bool ascend() {
        --mDepth;
        return true;
    }

    GameList* const mList;
    std::string mKey;
    int mDepth = 0;
    bool mInObject = false;
};

constexpr std::string_view kBlanks = " \t\r\v\f";

std::string_view nextWord(std::string_view* line) {
    line->remove_prefix(std::min(line->find_first_not_of(kBlanks), line->size()));
    const std::string_view word = line->substr(0, line->find_first_of(kBlanks));
    line->remove_prefix(word.size());
    return word;
}

bool parseInt(std::string_view word, int* outValue) {
    if (word.size() > 1 && word.front() == '+' && word[1] != '-') word.remove_prefix(1);
    const char* end = word.data() + word.size();
    const auto result = std::from_chars(word.data(), end, *outValue);
    return result.ec == std::errc() && result.ptr == end;
}

void readLine(std::string_view line, GameList* list) {
    std::string_view rest = line;
    const std::string_view pkg = nextWord(&rest);
    if (pkg.empty() || pkg.front() == '#') return;
    int value = 0;
    if (parseInt(nextWord(&rest), &value) && nextWord(&rest).empty()) {
        list->add(std::string(pkg), value);
    } else {
        list->skip(line);
    }
}

void readLines(std::string_view text, GameList* list) {
    while (!text.empty()) {
        const size_t length = std::min(text.find('\n'), text.size());
        readLine(text.substr(0, length), list);
        text.remove_prefix(std::min(length + 1, text.size()));
    }
}

}  // namespace

// The text comes by value because the platform's signature says so.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void FastEffectString2PkgMapAndVec(String8 text, std::map<std::string, int>& map,
                                   std::vector<std::string>& pkgs) {
    map.clear();
    pkgs.clear();
    std::string_view bytes(text.c_str(), text.length());
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (bytes.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
        bytes.remove_prefix(kByteOrderMark.size());
    }

    GameList list(&map, &pkgs);
    const size_t first = bytes.find_first_not_of(" \t\r\n\v\f");
    if (first != std::string_view::npos && (bytes[first] == '{' || bytes[first] == '[')) {
        GameListSax sax(&list);
        (void)Json::sax_parse(bytes, &sax);  // The handler has logged why it stopped.
    } else {
        readLines(bytes, &list);
    }
    list.logSkipped();
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the platform's signature
void FastEffectPkgSwitchMap2String(std::map<std::string, int> map, String8* out) {
    if (out == nullptr) return;
    JsonWriter writer(2 + map.size() * 48);
    writer.beginObject();
    for (const auto& [pkg, value] : map) {
        writer.keyBytes(pkg);
        writer.value(value);
    }
    writer.endObject();
    writer.copyTo(out);
}

}  // namespace android
