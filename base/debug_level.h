// SPDX-License-Identifier: GPL-2.0-only
// How much the packet path and the cache say in the kernel log.
#pragma once

#include "base/atomic_word.h"
#include "captive_portal/control.h"

namespace captive_portal
{

// Written by start and by the debug-level command, without a lock; every reader takes it as one word.
extern int32_t debug_level;

// True when lines that need at least `level` are printed.
[[nodiscard]] inline bool debug_level_reaches(int32_t level)
{
	return load_word(debug_level) >= level;
}

} // namespace captive_portal
