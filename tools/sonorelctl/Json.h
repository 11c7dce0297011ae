#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "qelto/halvend/CallbackData.h"

namespace sonorel::ctl {

// Keys keep their order. Floats are floats: they are printed with the fewest digits that read back
// to the same bits.
using Json = nlohmann::basic_json<nlohmann::ordered_map, std::vector, std::string, bool, int64_t,
                                  uint64_t, float>;

// JSON has no NaN and no infinities: they become "nan", "inf" and "-inf".
Json toJson(float value);

template <typename T>
Json toJson(const T& value) {
    return Json(value);
}

template <typename T>
Json toJson(const std::vector<T>& values) {
    Json array = Json::array();
    for (const T& value : values)
        array.push_back(toJson(value));
    return array;
}

// Every field, in the record's order.
Json toJson(const qelto::halvend::CallbackData& data);

// One line. Text that is no UTF-8 has its broken bytes replaced.
std::string toLine(const Json& json);

// Sets one field of a record from "FIELD=VALUE". False with the reason in outError.
[[nodiscard]] bool setField(const std::string& fieldAndValue, qelto::halvend::CallbackData* outData,
                            std::string* outError);

}  // namespace sonorel::ctl
