// The key-value pairs of a query.
#include "zxstr.h"

#include <algorithm>
#include <cstring>

namespace {

void store_value(char* value, uint32_t size, const char* begin, const char* end) {
    if (value == nullptr || size == 0) {
        return;
    }
    const auto kept = std::min(end - begin, std::ptrdiff_t{size} - 1);
    *std::replace_copy(begin, begin + kept, value, '+', ' ') = '\0';
}

}  // namespace

extern "C" int32_t zxstr_api_findTag(char* value, uint32_t valueSize, const char* name,
                                     const char* query) {
    if (name == nullptr || query == nullptr) {
        return 0;
    }
    const std::size_t name_length = std::strlen(name);
    const char* key = *query == '?' ? query + 1 : query;
    for (;;) {
        const std::size_t key_length = std::strcspn(key, "=&");
        const char* const begin = key + key_length + (key[key_length] == '=' ? 1 : 0);
        const char* const end = key[key_length] == '=' ? strchrnul(begin, '&') : begin;
        store_value(value, valueSize, begin, end);

        const std::size_t compared = std::min<std::size_t>(key_length, ZXSTR_KEY_SIZE - 1);
        if (compared == name_length && std::memcmp(key, name, compared) == 0) {
            return 1;
        }
        if (*end != '&') {
            return 0;
        }
        key = end + 1;
    }
}
