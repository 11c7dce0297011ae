#include "sonorelctl/Json.h"

#include <cmath>

#include "sonorelctl/Arguments.h"

namespace sonorel::ctl {
namespace {

using qelto::halvend::CallbackData;

// The one list of the record's fields.
template <typename Data, typename Visit>
void forEachField(Data& data, const Visit& visit) {
    visit("status", data.status);
    visit("enable", data.enable);
    visit("mode", data.mode);
    visit("pkgName", data.pkgName);
    visit("scene", data.scene);
    visit("intValue", data.intValue);
    visit("spMode", data.spMode);
    visit("isPlaying", data.isPlaying);
    visit("playState", data.playState);
    visit("data", data.data);
    visit("intValue2", data.intValue2);
    visit("strValue", data.strValue);
    visit("splitScreenEnabled", data.splitScreenEnabled);
    visit("splitScreenParam1", data.splitScreenParam1);
    visit("splitScreenParam2", data.splitScreenParam2);
    visit("strValue2", data.strValue2);
    visit("mssEnable", data.mssEnable);
    visit("renderMode", data.renderMode);
    visit("gains", data.gains);
}

}  // namespace

Json toJson(float value) {
    if (std::isnan(value)) return "nan";
    if (std::isinf(value)) return value > 0 ? "inf" : "-inf";
    return value;
}

Json toJson(const CallbackData& data) {
    Json object = Json::object();
    forEachField(data, [&](const char* name, const auto& value) { object[name] = toJson(value); });
    return object;
}

std::string toLine(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

bool setField(const std::string& fieldAndValue, CallbackData* outData, std::string* outError) {
    const size_t equals = fieldAndValue.find('=');
    if (equals == std::string::npos) {
        *outError = "'" + fieldAndValue + "' is not FIELD=VALUE";
        return false;
    }
    const std::string field = fieldAndValue.substr(0, equals);
    bool found = false;
    bool parsed = false;
    forEachField(*outData, [&](const char* name, auto& value) {
        if (field != name) return;
        found = true;
        parsed = parseArgument(fieldAndValue.substr(equals + 1), &value, outError);
    });
    if (!found) *outError = "the record has no field '" + field + "'";
    if (found && !parsed) *outError = field + ": " + *outError;
    return parsed;
}

}  // namespace sonorel::ctl
