/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * What a test may order of a module that was built for tests (CP_TEST_KNOBS=y, see Kbuild): of a release build nothing of
 * this is part, and check-module.sh looks that it is so.
 *
 * fail_atomic_allocation, a parameter in /sys/module/captive_portal/parameters: written n, the n-th atomic allocation of
 * the module from then on fails, 1 being the next, in whatever context it is asked for. It counts down and reads 0 once
 * it has. The kernel's own fault injection does not reach what is allocated in softirq context.
 */
#ifndef PLATFORM_LINUX_TEST_KNOBS_H
#define PLATFORM_LINUX_TEST_KNOBS_H

#include <linux/types.h>

#ifdef CP_TEST_KNOBS

#include <linux/atomic.h>
#include <linux/moduleparam.h>

/* Included by one file. */
static atomic_t test_knob_atomic_allocation = ATOMIC_INIT(0);
module_param_named(fail_atomic_allocation, test_knob_atomic_allocation.counter, int, 0600);

static inline bool atomic_allocation_fails_on_order(void)
{
	return atomic_dec_if_positive(&test_knob_atomic_allocation) == 0;
}

#else

static inline bool atomic_allocation_fails_on_order(void)
{
	return false;
}

#endif

#endif
