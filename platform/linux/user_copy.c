// SPDX-License-Identifier: GPL-2.0-only
/* Copies between the module and the calling process. */
#include "platform/linux/glue.h"

#include <linux/err.h>
#include <linux/string.h>
#include <linux/uaccess.h>

void *cp_memdup_user(cp_user_address from, size_t size)
{
	void *copy = memdup_user((const void __user *)from, size);

	/* An error pointer stays in this file: freed further up, it would be a wild pointer in the allocator. */
	return IS_ERR(copy) ? NULL : copy;
}

size_t cp_copy_from_user(void *to, cp_user_address from, size_t size)
{
	unsigned long left = copy_from_user(to, (const void __user *)from, size);

	/* Current kernels have done so already; not every architecture's 4.x has. */
	if (left)
		memset((char *)to + (size - left), 0, left);
	return left;
}

size_t cp_copy_to_user(cp_user_address to, const void *from, size_t size)
{
	return copy_to_user((void __user *)to, from, size);
}
