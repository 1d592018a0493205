// SPDX-License-Identifier: GPL-2.0-only
/* Memory. Every atomic allocation of the module goes through the one function here. */
#include "platform/linux/glue.h"

#include <linux/kernel.h>
#include <linux/rcupdate.h>
#include <linux/slab.h>
#include <linux/vmalloc.h>

#include "platform/linux/compat/large_memory.h"
#include "platform/linux/test_knobs.h"

TEST_KNOB(fail_atomic_allocation)

void *cp_zalloc_atomic(size_t size)
{
	if (fail_atomic_allocation_ordered() == 0)
		return NULL;
	/* A flood of clients may use up the atomic reserves; each failure then must not print a stack trace as well. */
	return kzalloc(size, GFP_ATOMIC | __GFP_NOWARN);
}

void cp_free(void *memory)
{
	kfree(memory);
}

int cp_allocations_are_watched(void)
{
	return 0;
}

void *cp_alloc_large(size_t size)
{
	return allocate_large_memory(size);
}

void cp_free_large(void *memory)
{
	kvfree(memory);
}

void *cp_zalloc_large(size_t size)
{
	return allocate_zeroed_pages(size);
}

/* Whether anything was ever left to free_deferred(). */
static bool deferred;

/* Softirq context or like it, where the kernel itself puts off what the call below may not do there. */
static void free_deferred(struct rcu_head *head)
{
	vfree(head);
}

/* Hooks run inside RCU read sections. */
void cp_free_large_after_readers(struct cp_deferred_free *memory)
{
	BUILD_BUG_ON(sizeof(struct rcu_head) > sizeof(struct cp_deferred_free));
	WRITE_ONCE(deferred, true);
	call_rcu((struct rcu_head *)memory, free_deferred);
}

void wait_for_deferred_frees(void)
{
	if (READ_ONCE(deferred))
		rcu_barrier();
}
