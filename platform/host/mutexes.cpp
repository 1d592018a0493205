// SPDX-License-Identifier: GPL-2.0-only
#include "platform/host/mutexes.h"

#include "platform/host/context.h"

namespace captive_portal::host
{

namespace
{

constexpr const char *mutex_names[CP_MUTEXES] = {"clients_mutex", "reports_mutex"};

constexpr uint32_t bit(cp_mutex_id id)
{
	return 1u << id;
}

} // namespace

void Mutexes::lock(cp_mutex_id id)
{
	if (static_cast<unsigned>(id) >= CP_MUTEXES) {
		die("mutex number %u does not exist", static_cast<unsigned>(id));
	}
	might_sleep(mutex_names[id]);
	if (held_mutexes() != 0) {
		die("%s taken while mutexes 0x%x are held", mutex_names[id], held_mutexes());
	}
	mutexes_[id].mutex.lock();
	mutexes_[id].acquisitions.fetch_add(1, std::memory_order_relaxed);
	set_held_mutexes(bit(id));
}

void Mutexes::unlock(cp_mutex_id id)
{
	if (static_cast<unsigned>(id) >= CP_MUTEXES || held_mutexes() != bit(id)) {
		die("mutex number %u released by a thread that does not hold it", static_cast<unsigned>(id));
	}
	set_held_mutexes(0);
	mutexes_[id].mutex.unlock();
}

void Mutexes::expect_all_free(const char *when)
{
	for (unsigned id = 0; id < CP_MUTEXES; ++id) {
		if (held_mutexes() != 0 || !mutexes_[id].mutex.try_lock()) {
			die("%s is held %s", mutex_names[id], when);
		}
		mutexes_[id].mutex.unlock();
	}
}

} // namespace captive_portal::host
