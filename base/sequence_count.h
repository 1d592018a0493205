// SPDX-License-Identifier: GPL-2.0-only
// Lets readers take no lock and still see several words as they were at one moment: a writer counts before and after its
// change, and a reader that finds another count at its end, or an odd one at its start, has seen nothing.
//
// Between the two a reader loads with load_word_acquire() and a writer stores with store_word_release(): that orders the
// counts around the words without a fence, which the thread sanitizer would not understand. Writers exclude each other by
// a lock of their own.
#pragma once

#include "base/atomic_word.h"

namespace captive_portal
{

class SequenceCount
{
public:
	[[nodiscard]] uint64_t begin_reading() const { return load_word_acquire(count_); }
	// False: a writer was at work when `begin_reading()` gave this.
	[[nodiscard]] static bool is_quiet(uint64_t count) { return (count & 1) == 0; }
	[[nodiscard]] bool is_unchanged_since(uint64_t count) const { return load_word(count_) == count; }

	void begin_writing() { store_word(count_, count_ + 1); }
	void end_writing() { store_word_release(count_, count_ + 1); }

private:
	uint64_t count_ = 0;
};

} // namespace captive_portal
