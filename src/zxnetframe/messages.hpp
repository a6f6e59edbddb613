// The tag of the messages. A line names the exported function whose work it describes, even when
// another function called the work inside.
#pragma once

#include "internal/args.hpp"
#include "internal/log.hpp"

inline constexpr char kTag[] = "NETFRAME";
