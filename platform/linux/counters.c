// SPDX-License-Identifier: GPL-2.0-only
/*
 * Counters. Each processor has its own, and adds to it in one instruction where the processor has such a one, so that neither
 * an interrupt nor another processor takes a count away.
 */
#include "platform/linux/glue.h"

#include <linux/cpumask.h>
#include <linux/errno.h>
#include <linux/irqflags.h>
#include <linux/percpu.h>

/* Null while there are none. Written before the first hook can run, and when none runs any more. */
static u64 __percpu *counters;

int cp_counters_create(size_t count)
{
	counters = __alloc_percpu(count * sizeof(u64), __alignof__(u64));
	return counters ? 0 : -ENOMEM;
}

void cp_counters_remove(void)
{
	free_percpu(counters);
	counters = NULL;
}

static __always_inline void add_one(size_t counter)
{
	u64 __percpu *const all = counters;

	if (likely(all))
		this_cpu_inc(all[counter]);
}

notrace void cp_count(size_t counter)
{
	add_one(counter);
}

notrace enum cp_verdict cp_count_and_accept(size_t counter)
{
	add_one(counter);
	return CP_ACCEPT;
}

notrace enum cp_verdict cp_count_and_drop(size_t counter)
{
	add_one(counter);
	return CP_DROP;
}

uint64_t cp_counted(size_t counter)
{
	uint64_t sum = 0;
	int processor;

	if (!counters)
		return 0;
	for_each_possible_cpu(processor) sum += READ_ONCE(*per_cpu_ptr(&counters[counter], processor));
	return sum;
}
