// JSON that belongs to an object.
#pragma once

#include <memory>

#include "zxjson.h"

namespace tools {

struct JsonDeleter {
    void operator()(cJSON* tree) const { cJSON_Delete(tree); }
};
using Json = std::unique_ptr<cJSON, JsonDeleter>;

}  // namespace tools
