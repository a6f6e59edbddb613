// Members of JSON objects.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

#include "streams/flow.hpp"
#include "zxjson.h"

namespace capture {

inline void put(cJSON* object, const char* key, double value) {
    cJSON_AddNumberToObject(object, key, value);
}

inline void put(cJSON* object, const char* key, std::uint64_t value) {
    cJSON_AddNumberToObject(object, key, static_cast<double>(value));
}

inline void put(cJSON* object, const char* key, std::int64_t value) {
    cJSON_AddNumberToObject(object, key, static_cast<double>(value));
}

inline void put(cJSON* object, const char* key, const std::string& value) {
    cJSON_AddStringToObject(object, key, value.c_str());
}

// A new object at the end of an array.
inline cJSON* add_object(cJSON* array) {
    cJSON* const object = cJSON_CreateObject();
    cJSON_AddItemToArray(array, object);
    return object;
}

inline void put_vlans(cJSON* object, const Vlans& vlans) {
    cJSON* const array = cJSON_AddArrayToObject(object, "vlans");
    for (std::size_t i = 0; i < std::min<std::size_t>(vlans.count, vlans.ids.size()); ++i) {
        cJSON_AddItemToArray(array, cJSON_CreateNumber(vlans.ids[i]));
    }
}

}  // namespace capture
