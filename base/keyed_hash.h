// SPDX-License-Identifier: GPL-2.0-only
// Hashes of keys that strangers choose: without the seed nobody can say which keys meet in a bucket.
//
// Pair multiply-shift: for any two keys and a random seed, every pair of 32-bit hashes is (nearly) equally likely, and so
// is every choice of their bits, so whatever keys a client sends meet no more often than random ones. Keys in a row, such
// as a client's ports, still give hashes in even steps, which pile up for some seeds; the mixing behind it, which no two
// hashes leave as one, breaks the steps.
#pragma once

#include "platform/platform.h"

namespace captive_portal
{

struct HashSeed {
	uint64_t first;
	uint64_t second;
	uint64_t offset;
};

// Drawn once, before the first hash is made with it.
[[nodiscard]] inline HashSeed draw_hash_seed()
{
	return {cp_random_seed(), cp_random_seed(), cp_random_seed()};
}

// Of a key of two 32-bit halves; all bits of the result are as good as each other.
[[nodiscard]] constexpr uint32_t keyed_hash(const HashSeed &seed, uint32_t first, uint32_t second)
{
	auto hash = static_cast<uint32_t>(((seed.first + first) * (seed.second + second) + seed.offset) >> 32);
	hash ^= hash >> 16;
	hash *= 0x85ebca6b;
	return hash ^ hash >> 13;
}

} // namespace captive_portal
