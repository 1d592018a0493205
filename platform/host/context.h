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
// Spin locks and mutexes that the calling thread holds, bit `1 << cp_lock_id` and `1 << cp_mutex_id`.
[[nodiscard]] uint32_t held_locks();
[[nodiscard]] uint32_t held_mutexes();

// Dies unless the calling thread may sleep; `what` names the call for the message.
void might_sleep(const char *what);
// Dies if the calling thread holds a lock or a mutex; `where` names the entry of the module that has just returned.
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
// The same; for mutexes.cpp alone.
void set_held_mutexes(uint32_t mutexes);

} // namespace captive_portal::host
