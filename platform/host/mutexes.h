// SPDX-License-Identifier: GPL-2.0-only
// The module's mutexes, with what a kernel would warn about asserted.
#pragma once

#include <array>
#include <atomic>
#include <mutex>

#include "platform/platform.h"

namespace captive_portal::host
{

class Mutexes
{
public:
	// Dies when the thread may not sleep, or holds a mutex already.
	void lock(cp_mutex_id id);
	// Dies when the thread does not hold the mutex.
	void unlock(cp_mutex_id id);

	// How often the mutex was taken.
	[[nodiscard]] uint64_t acquisitions(cp_mutex_id id) const { return mutexes_[id].acquisitions.load(); }
	// Dies when any thread holds any mutex.
	void expect_all_free(const char *when);

private:
	struct Mutex {
		std::mutex mutex;
		std::atomic<uint64_t> acquisitions = 0;
	};
	std::array<Mutex, CP_MUTEXES> mutexes_;
};

} // namespace captive_portal::host
