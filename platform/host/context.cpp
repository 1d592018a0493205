// SPDX-License-Identifier: GPL-2.0-only
#include "platform/host/context.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace captive_portal::host
{

namespace
{

struct Context {
	uint32_t held_locks = 0;
	uint32_t held_mutexes = 0;
	uint32_t softirq_depth = 0;
};

thread_local Context context;

} // namespace

void die(const char *format, ...)
{
	va_list arguments;
	va_start(arguments, format);
	std::fputs("host kernel: ", stderr);
	std::vfprintf(stderr, format, arguments);
	std::fputs("\n", stderr);
	va_end(arguments);
	std::abort();
}

bool in_softirq()
{
	return context.softirq_depth != 0;
}

uint32_t held_locks()
{
	return context.held_locks;
}

void set_held_locks(uint32_t locks)
{
	context.held_locks = locks;
}

uint32_t held_mutexes()
{
	return context.held_mutexes;
}

void set_held_mutexes(uint32_t mutexes)
{
	context.held_mutexes = mutexes;
}

void might_sleep(const char *what)
{
	if (context.held_locks != 0) {
		die("%s may sleep, but a spin lock is held (locks 0x%x)", what, context.held_locks);
	}
	if (in_softirq()) {
		die("%s may sleep, but a hook is running", what);
	}
}

void expect_no_lock_held(const char *where)
{
	if (context.held_mutexes != 0) {
		die("%s returned with a mutex held (mutexes 0x%x)", where, context.held_mutexes);
	}
	if (context.held_locks != 0) {
		die("%s returned with a spin lock held (locks 0x%x)", where, context.held_locks);
	}
}

SoftirqContext::SoftirqContext()
{
	++context.softirq_depth;
}

SoftirqContext::~SoftirqContext()
{
	--context.softirq_depth;
}

} // namespace captive_portal::host
