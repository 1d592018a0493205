// SPDX-License-Identifier: GPL-2.0-only
// Lets readers take no lock and still see several words as they were at one moment: a writer counts before and after its
// change, and a reader that finds another count at its end, or a writer at its start, has seen nothing.
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
	// False: a writer was at work when begin_reading() gave this, or has been since, and what was read does not count.
	[[nodiscard]] bool was_quiet_since(uint64_t count) const
	{
		return (count & writing) == 0 && load_word(count_) == count;
	}
	// The same, and there was no exception.
	[[nodiscard]] bool was_plain_since(uint64_t count) const
	{
		return (count & (writing | exceptional)) == 0 && load_word(count_) == count;
	}

	void begin_writing() { store_word(count_, count_ | writing); }
	void end_writing() { store_word_release(count_, (count_ & ~writing) + one); }

	// An exception that readers must know of, or may no longer know of: they find it in the word that they read anyway. It
	// begins while a writer is at work.
	void begin_exception() { store_word(count_, count_ | exceptional); }
	void end_exception() { store_word_release(count_, count_ & ~exceptional); }

private:
	static constexpr uint64_t writing = 1;
	static constexpr uint64_t exceptional = 2;
	static constexpr uint64_t one = 4;

	uint64_t count_ = 0;
};

} // namespace captive_portal
