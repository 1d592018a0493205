/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * Memory of any size that need not lie in one piece: from 4.12 on the kernel itself goes from the one allocator to the
 * other. Until 5.7 the second one is told how to map its pages. What either gives is freed with kvfree().
 */
#ifndef PLATFORM_LINUX_COMPAT_LARGE_MEMORY_H
#define PLATFORM_LINUX_COMPAT_LARGE_MEMORY_H

#include <linux/mm.h>
#include <linux/slab.h>
#include <linux/version.h>
#include <linux/vmalloc.h>

/* Not zeroed; null when there is no memory, and the kernel says nothing about it. May sleep. */
static inline void *allocate_large_memory(size_t size)
{
#if LINUX_VERSION_CODE >= KERNEL_VERSION(4, 12, 0)
	return kvmalloc(size, GFP_KERNEL | __GFP_NOWARN);
#else
	void *memory = NULL;

	/* A large piece is asked for without effort: the other allocator has it. */
	if (size <= KMALLOC_MAX_SIZE)
		memory = kmalloc(size, GFP_KERNEL | __GFP_NOWARN | (size > PAGE_SIZE ? __GFP_NORETRY : 0));
	return memory ? memory : __vmalloc(size, GFP_KERNEL | __GFP_HIGHMEM | __GFP_NOWARN, PAGE_KERNEL);
#endif
}

/* Zeroed, in pages of its own: no power of two rounds it up. Null, and the kernel says nothing. May sleep. */
static inline void *allocate_zeroed_pages(size_t size)
{
#if LINUX_VERSION_CODE >= KERNEL_VERSION(5, 8, 0)
	return __vmalloc(size, GFP_KERNEL | __GFP_ZERO | __GFP_NOWARN);
#else
	return __vmalloc(size, GFP_KERNEL | __GFP_HIGHMEM | __GFP_ZERO | __GFP_NOWARN, PAGE_KERNEL);
#endif
}

#endif
