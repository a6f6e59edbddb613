// The files of the status page.
#pragma once

#include <string_view>

namespace relay {

extern const std::string_view kStatusPage;
extern const std::string_view kStatusStyle;
extern const std::string_view kStatusScript;
extern const std::string_view kCommonScript;
extern const std::string_view kInsidePage;
extern const std::string_view kInsideScript;

}  // namespace relay
