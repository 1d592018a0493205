// SPDX-License-Identifier: GPL-2.0-only
#include "platform/host/spin_locks.h"

#include "platform/host/context.h"

namespace captive_portal::host
{

namespace
{

constexpr const char *lock_names[CP_LOCKS] = {
	"gatekeeper_lock", "cp_lock", "gateway_lock", "change_ip_port_lock", "dns_list_lock", "walledgarden_lock",
};

constexpr uint32_t bit(cp_lock_id id)
{
	return 1u << id;
}

// The one nesting: a cache refresh asks the rule matcher.
constexpr bool may_nest(uint32_t held, cp_lock_id wanted)
{
	return held == 0 || (held == bit(CP_LOCK_DNS_LIST) && wanted == CP_LOCK_WALLEDGARDEN);
}

} // namespace

void SpinLocks::lock(cp_lock_id id)
{
	if (static_cast<unsigned>(id) >= CP_LOCKS) {
		die("lock number %u does not exist", static_cast<unsigned>(id));
	}
	const uint32_t held = held_locks();
	if ((held & bit(id)) != 0) {
		die("%s taken twice by one thread", lock_names[id]);
	}
	if (!may_nest(held, id)) {
		die("lock order: %s taken while locks 0x%x are held", lock_names[id], held);
	}
	locks_[id].mutex.lock();
	locks_[id].acquisitions.fetch_add(1, std::memory_order_relaxed);
	set_held_locks(held | bit(id));
}

void SpinLocks::unlock(cp_lock_id id)
{
	if (static_cast<unsigned>(id) >= CP_LOCKS || (held_locks() & bit(id)) == 0) {
		die("lock number %u released by a thread that does not hold it", static_cast<unsigned>(id));
	}
	set_held_locks(held_locks() & ~bit(id));
	locks_[id].mutex.unlock();
}

void SpinLocks::expect_all_free(const char *when)
{
	for (unsigned id = 0; id < CP_LOCKS; ++id) {
		if ((held_locks() & (1u << id)) != 0 || !locks_[id].mutex.try_lock()) {
			die("%s is held %s", lock_names[id], when);
		}
		locks_[id].mutex.unlock();
	}
}

} // namespace captive_portal::host
