// SPDX-License-Identifier: GPL-2.0-only
// How long each lock is held, in time and in entries. Only the programs that ask for it are built with it; elsewhere all
// of this is nothing.
//
// CP_BENCH_COUNT_ENTRIES: the core is compiled so that every access to memory calls a function of holds.cpp, which
// counts, for each lock that is held, the pieces of allocated memory (light_memory.h) that were looked at, written or
// freed, each once a hold. So no loop of the core has to be marked, and none can be forgotten.
// CP_BENCH_TIME_HOLDS: the clock is read when a lock is taken and given back.
#pragma once

#include <array>
#include <cstdint>

#include "platform/platform.h"

namespace captive_portal::bench
{

#if defined(CP_BENCH_COUNT_ENTRIES) || defined(CP_BENCH_TIME_HOLDS)

void hold_begins(cp_lock_id lock);
void hold_ends(cp_lock_id lock);
void block_touched(const void *block);

struct LongestHold {
	uint64_t holds;
	uint64_t entries;
	uint64_t nanoseconds;
};

// From here on holds are watched; no lock is held.
void watch_holds();
// What was seen since then, by lock. Holds are watched no longer: filling a table is quick again.
[[nodiscard]] std::array<LongestHold, CP_LOCKS> longest_holds();

#else

inline void hold_begins(cp_lock_id) {}
inline void hold_ends(cp_lock_id) {}
inline void block_touched(const void *) {}

#endif

} // namespace captive_portal::bench
