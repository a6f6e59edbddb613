// The tag of the messages. A line names the exported function whose work it describes, even when
// another function called the work inside. The tag is not inline, because other modules give the
// same name to theirs.
#pragma once

#include "internal/args.hpp"
#include "internal/log.hpp"

constexpr char kTag[] = "NETFRAME";
