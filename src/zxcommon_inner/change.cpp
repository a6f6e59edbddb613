#include "zxt.h"

#include "zxcommon_inner/messages.hpp"

namespace {

constexpr std::uint8_t kTolerated = 5;  // changes in a row

}  // namespace

extern "C" int32_t zxt_api_isDatatypeChange(const int8_t* cur, int8_t* last, uint8_t* counter,
                                            const char* tag, const char* fromText,
                                            const char* toText) {
    if (!ZX_ARE_GIVEN({cur, "cur"}, {last, "last"}, {counter, "counter"}, {tag, "tag"},
                      {fromText, "fromText"}, {toText, "toText"})) {
        return 0;
    }
    if (*cur == *last) {
        *counter = 0;
        return 0;
    }
    ++*counter;
    if (*counter > kTolerated) {
        *counter = 0;
        ZX_LOG(warning, "[%s] data change(%d->%d)  from  %s to %s ", tag, *cur, *last, fromText,
               toText);
        return 1;
    }
    *last = *cur;
    return 0;
}
