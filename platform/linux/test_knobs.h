/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * What a test may order of a module that was built for tests (CP_TEST_KNOBS=y, see Kbuild): of a release build nothing of
 * this is part, and check-module.sh looks that it is so. The kernel's own fault injection does not reach what is asked for
 * in softirq context.
 *
 * Parameters in /sys/module/captive_portal/parameters. Each counts down with every request of its kind, in whatever context
 * that is made, and stays at 0:
 * fail_atomic_allocation  written n, the n-th atomic allocation of the module from then on fails, 1 being the next
 * fail_writable           written n, the n-th request for a packet that may be written
 * fail_pulls              written n, the next n requests for headers in one piece: what a hook does not get, the next one
 *                         asks for again
 */
#ifndef PLATFORM_LINUX_TEST_KNOBS_H
#define PLATFORM_LINUX_TEST_KNOBS_H

#ifdef CP_TEST_KNOBS

#include <linux/atomic.h>
#include <linux/moduleparam.h>

/* Defines the parameter, and name##_ordered(), which gives how many are left behind this request, or less than 0. */
#define TEST_KNOB(name)                                                                                                \
	static atomic_t test_knob_##name = ATOMIC_INIT(0);                                                             \
	module_param_named(name, test_knob_##name.counter, int, 0600);                                                 \
	static inline int name##_ordered(void)                                                                         \
	{                                                                                                              \
		return atomic_dec_if_positive(&test_knob_##name);                                                      \
	}

#else

#define TEST_KNOB(name)                                                                                                \
	static inline int name##_ordered(void)                                                                         \
	{                                                                                                              \
		return -1;                                                                                             \
	}

#endif

#endif
