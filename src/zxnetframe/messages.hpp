// What the engine says: its tag. A line names the exported function whose work it tells of, even
// where another one has that done inside.
#pragma once

#include "internal/args.hpp"
#include "internal/log.hpp"

inline constexpr char kTag[] = "NETFRAME";
