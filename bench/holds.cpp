// SPDX-License-Identifier: GPL-2.0-only
// One thread only.
#include "bench/holds.h"

#include <sys/mman.h>

#include <algorithm>
#include <ctime>

#include "bench/light_memory.h"

namespace captive_portal::bench
{

namespace
{

struct Hold {
	bool open;
	uint32_t number;
	uint64_t entries;
	int64_t start;
	// By piece: the hold that saw it last.
	uint32_t *seen_by;
};

std::array<Hold, CP_LOCKS> holds{};
std::array<LongestHold, CP_LOCKS> longest{};

int64_t nanoseconds()
{
	timespec now;
	clock_gettime(CLOCK_MONOTONIC, &now);
	return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

uint32_t *map_marks()
{
	void *const memory = mmap(nullptr, piece_numbers * sizeof(uint32_t), PROT_READ | PROT_WRITE,
				  MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
	return memory != MAP_FAILED ? static_cast<uint32_t *>(memory) : nullptr;
}

bool watching = false;
// How many locks are held.
uint32_t open_holds = 0;

void touch(uintptr_t address)
{
	if (open_holds == 0) {
		return;
	}
	const uint32_t piece = piece_of(address);
	if (piece == no_piece) {
		return;
	}
	for (Hold &hold : holds) {
		if (hold.open && hold.seen_by[piece] != hold.number) {
			hold.seen_by[piece] = hold.number;
			++hold.entries;
		}
	}
}

} // namespace

void hold_begins(cp_lock_id lock)
{
	if (!watching) {
		return;
	}
	Hold &hold = holds[lock];
	if (hold.seen_by == nullptr) {
		hold.seen_by = map_marks();
	}
	hold.open = true;
	++open_holds;
	++hold.number;
	hold.entries = 0;
	hold.start = nanoseconds();
}

void hold_ends(cp_lock_id lock)
{
	if (!watching) {
		return;
	}
	Hold &hold = holds[lock];
	const int64_t end = nanoseconds();
	hold.open = false;
	--open_holds;
	LongestHold &record = longest[lock];
	++record.holds;
	record.entries = std::max(record.entries, hold.entries);
	record.nanoseconds = std::max(record.nanoseconds, static_cast<uint64_t>(end - hold.start));
}

void block_touched(const void *block)
{
	touch(reinterpret_cast<uintptr_t>(block));
}

void watch_holds()
{
	longest = {};
	watching = true;
}

std::array<LongestHold, CP_LOCKS> longest_holds()
{
	watching = false;
	return longest;
}

} // namespace captive_portal::bench

#ifdef CP_BENCH_COUNT_ENTRIES

// What the compiler calls before each access of the core, in the way that it does for a kernel's address sanitizer.
#define CP_ACCESS(name)                                                                                                \
	void name(uintptr_t address);                                                                                  \
	void name(uintptr_t address)                                                                                   \
	{                                                                                                              \
		captive_portal::bench::touch(address);                                                                 \
	}
#define CP_ACCESS_OF_SIZE(name)                                                                                        \
	void name(uintptr_t address, size_t size);                                                                     \
	void name(uintptr_t address, size_t size)                                                                      \
	{                                                                                                              \
		for (size_t offset = 0; offset < size; offset += 8) {                                                  \
			captive_portal::bench::touch(address + offset);                                                \
		}                                                                                                      \
	}

extern "C" {
CP_ACCESS(__asan_load1_noabort)
CP_ACCESS(__asan_load2_noabort)
CP_ACCESS(__asan_load4_noabort)
CP_ACCESS(__asan_load8_noabort)
CP_ACCESS(__asan_load16_noabort)
CP_ACCESS_OF_SIZE(__asan_loadN_noabort)
CP_ACCESS(__asan_store1_noabort)
CP_ACCESS(__asan_store2_noabort)
CP_ACCESS(__asan_store4_noabort)
CP_ACCESS(__asan_store8_noabort)
CP_ACCESS(__asan_store16_noabort)
CP_ACCESS_OF_SIZE(__asan_storeN_noabort)
}

#endif
