// The files of the status page.
#pragma once

#include <string_view>

namespace relay {

extern const std::string_view kStatusPage;
extern const std::string_view kStatusStyle;
extern const std::string_view kStatusScript;

}  // namespace relay
