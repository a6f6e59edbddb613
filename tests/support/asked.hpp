// An answer of the diagnosis, taken apart.
#pragma once

#include <cjson/cJSON.h>

#include <cmath>
#include <cstdio>
#include <memory>
#include <string>

#include "zxdiag.h"

namespace zx::test {

class Asked {
public:
    explicit Asked(const char* question) {
        char* answer = zxdiag_api_ask(question);
        whole_.reset(cJSON_Parse(answer));
        zxdiag_api_free(&answer);
    }
    [[nodiscard]] const cJSON* whole() const { return whole_.get(); }

    // The element of an array of which the member `key` is this number or text. NULL: there is
    // none.
    [[nodiscard]] const cJSON* find(const char* array, const char* key, double number) const {
        return find_if(array, key, [=](const cJSON* its) { return its->valuedouble == number; });
    }
    [[nodiscard]] const cJSON* find(const char* array, const char* key,
                                    const std::string& text) const {
        return find_if(array, key, [&](const cJSON* its) {
            return cJSON_IsString(its) && its->valuestring == text;
        });
    }
    [[nodiscard]] const cJSON* find(const char* array, const void* record) const {
        char address[32];
        std::snprintf(address, sizeof address, "%p", record);
        return find(array, "address", address);
    }
    [[nodiscard]] int size(const char* array) const {
        return cJSON_GetArraySize(cJSON_GetObjectItemCaseSensitive(whole(), array));
    }

    // A member of an element, or of the whole answer. NaN or an empty text: it is not there.
    static double number(const cJSON* element, const char* key) {
        const cJSON* const member = cJSON_GetObjectItemCaseSensitive(element, key);
        return cJSON_IsNumber(member) ? member->valuedouble : NAN;
    }
    static std::string text(const cJSON* element, const char* key) {
        const cJSON* const member = cJSON_GetObjectItemCaseSensitive(element, key);
        return cJSON_IsString(member) ? member->valuestring : "";
    }
    double number(const char* array, const void* record, const char* key) const {
        return number(find(array, record), key);
    }
    std::string text(const char* array, const void* record, const char* key) const {
        return text(find(array, record), key);
    }

private:
    template <typename Condition>
    const cJSON* find_if(const char* array, const char* key, Condition is_it) const {
        const cJSON* element = nullptr;
        cJSON_ArrayForEach(element, cJSON_GetObjectItemCaseSensitive(whole(), array)) {
            const cJSON* const member = cJSON_GetObjectItemCaseSensitive(element, key);
            if (member != nullptr && is_it(member)) {
                return element;
            }
        }
        return nullptr;
    }

    std::unique_ptr<cJSON, decltype(&cJSON_Delete)> whole_{nullptr, cJSON_Delete};
};

}  // namespace zx::test
