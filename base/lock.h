// SPDX-License-Identifier: GPL-2.0-only
// A lock is held as long as its guard lives. Bottom halves are disabled meanwhile: nothing under a guard may sleep.
//
// What each lock guards is written beside the data. No two are ever held together, but for one pair: dns_list_lock may
// be held when walledgarden_lock is taken, because a cache refresh asks the rule matcher; never the other way round.
#pragma once

#include "platform/platform.h"

namespace captive_portal
{

enum class Lock {
	gatekeeper = CP_LOCK_GATEKEEPER,
	cp = CP_LOCK_CP,
	gateway = CP_LOCK_GATEWAY,
	change_ip_port = CP_LOCK_CHANGE_IP_PORT,
	dns_list = CP_LOCK_DNS_LIST,
	walledgarden = CP_LOCK_WALLEDGARDEN,
};

class [[nodiscard]] LockGuard
{
public:
	explicit LockGuard(Lock lock) : lock_(lock) { cp_spin_lock_bh(static_cast<cp_lock_id>(lock_)); }
	~LockGuard() { cp_spin_unlock_bh(static_cast<cp_lock_id>(lock_)); }
	LockGuard(const LockGuard &) = delete;
	LockGuard &operator=(const LockGuard &) = delete;

private:
	Lock lock_;
};

} // namespace captive_portal
