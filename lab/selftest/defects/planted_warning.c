// SPDX-License-Identifier: GPL-2.0-only
/* The kernel's own warning, which only C can give. */
#include <linux/bug.h>

void cp_planted_warning(void);

void cp_planted_warning(void)
{
	WARN_ON(1);
}
