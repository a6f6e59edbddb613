// The tag of the messages. It is not inline, because other modules give the same name to theirs.
#pragma once

#include "internal/args.hpp"
#include "internal/log.hpp"

constexpr char kTag[] = "ZXMD";
