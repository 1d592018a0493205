// SPDX-License-Identifier: GPL-2.0-only
// What the calling thread may do: a thread that runs a hook, or holds a spin lock, must not sleep.
#pragma once

#include "platform/platform.h"

namespace captive_portal::host
{

// Ends the process with "host kernel: " and the message. For what a real kernel would warn about or crash on.
[[noreturn]] void die(const char *format, ...) __attribute__((format(printf, 1, 2)));

// True when the calling thread runs a hook.
[[nodiscard]] bool in_softirq();
// Spin locks that the calling thread holds, bit `1 << cp_lock_id`.
[[nodiscard]] uint32_t held_locks();

// Dies unless the calling thread may sleep; `what` names the call for the message.
void might_sleep(const char *what);
// Dies if the calling thread holds a lock; `where` names the entry of the module that has just returned.
void expect_no_lock_held(const char *where);

// The calling thread is in softirq context while this lives.
class SoftirqContext
{
public:
	SoftirqContext();
	~SoftirqContext();
	SoftirqContext(const SoftirqContext &) = delete;
	SoftirqContext &operator=(const SoftirqContext &) = delete;
};

// The thread's held locks; for spin_locks.cpp alone.
void set_held_locks(uint32_t locks);

} // namespace captive_portal::host
