// SPDX-License-Identifier: GPL-2.0-only
/* Memory. Every atomic allocation of the module goes through the one function here. */
#include "platform/linux/glue.h"

#include <linux/slab.h>

#include "platform/linux/compat/large_memory.h"

void *cp_zalloc_atomic(size_t size)
{
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
