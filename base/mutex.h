// SPDX-License-Identifier: GPL-2.0-only
// A mutex is held as long as its guard lives. Process context only: whoever waits sleeps, and what is done under it may
// sleep too. A mutex is taken before any spin lock, and no two are ever held together: the host platform asserts both.
#pragma once

#include "platform/platform.h"

namespace captive_portal
{

enum class Mutex {
	clients = CP_MUTEX_CLIENTS,
	reports = CP_MUTEX_REPORTS,
};

class [[nodiscard]] MutexGuard
{
public:
	explicit MutexGuard(Mutex mutex) : mutex_(mutex) { cp_mutex_lock(static_cast<cp_mutex_id>(mutex_)); }
	~MutexGuard() { cp_mutex_unlock(static_cast<cp_mutex_id>(mutex_)); }
	MutexGuard(const MutexGuard &) = delete;
	MutexGuard &operator=(const MutexGuard &) = delete;

private:
	Mutex mutex_;
};

} // namespace captive_portal
