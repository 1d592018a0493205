// SPDX-License-Identifier: GPL-2.0-only
// The module's spin locks, as real mutexes that the thread sanitizer sees, with the order of nesting asserted.
#pragma once

#include <array>
#include <atomic>
#include <mutex>

#include "platform/platform.h"

namespace captive_portal::host
{

class SpinLocks
{
public:
	// Dies when the thread holds the lock already, or holds any lock but in the one permitted nesting.
	void lock(cp_lock_id id);
	// Dies when the thread does not hold the lock.
	void unlock(cp_lock_id id);

	// How often the lock was taken.
	[[nodiscard]] uint64_t acquisitions(cp_lock_id id) const { return locks_[id].acquisitions.load(); }
	// Dies when any thread holds any lock.
	void expect_all_free(const char *when);

private:
	struct SpinLock {
		std::mutex mutex;
		std::atomic<uint64_t> acquisitions = 0;
	};
	std::array<SpinLock, CP_LOCKS> locks_;
};

} // namespace captive_portal::host
