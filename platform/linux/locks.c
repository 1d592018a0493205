// SPDX-License-Identifier: GPL-2.0-only
/*
 * The module's spin locks and mutexes. Each is a variable of its own, so that the kernel's lock proof keeps a class for each and
 * reports a nesting against the order of base/lock.h under the lock's name.
 */
#include "platform/linux/glue.h"

#include <linux/mutex.h>
#include <linux/spinlock.h>

static DEFINE_SPINLOCK(gatekeeper_lock);
static DEFINE_SPINLOCK(cp_lock);
static DEFINE_SPINLOCK(gateway_lock);
static DEFINE_SPINLOCK(change_ip_port_lock);
static DEFINE_SPINLOCK(dns_list_lock);
static DEFINE_SPINLOCK(walledgarden_lock);

static spinlock_t *const locks[CP_LOCKS] = {
	[CP_LOCK_GATEKEEPER] = &gatekeeper_lock, [CP_LOCK_CP] = &cp_lock,
	[CP_LOCK_GATEWAY] = &gateway_lock,       [CP_LOCK_CHANGE_IP_PORT] = &change_ip_port_lock,
	[CP_LOCK_DNS_LIST] = &dns_list_lock,     [CP_LOCK_WALLEDGARDEN] = &walledgarden_lock,
};

void cp_spin_lock_bh(enum cp_lock_id lock)
{
	spin_lock_bh(locks[lock]);
}

void cp_spin_unlock_bh(enum cp_lock_id lock)
{
	spin_unlock_bh(locks[lock]);
}

static DEFINE_MUTEX(clients_mutex);
static DEFINE_MUTEX(reports_mutex);

static struct mutex *const mutexes[CP_MUTEXES] = {
	[CP_MUTEX_CLIENTS] = &clients_mutex,
	[CP_MUTEX_REPORTS] = &reports_mutex,
};

void cp_mutex_lock(enum cp_mutex_id mutex)
{
	mutex_lock(mutexes[mutex]);
}

void cp_mutex_unlock(enum cp_mutex_id mutex)
{
	mutex_unlock(mutexes[mutex]);
}
