// SPDX-License-Identifier: GPL-2.0-only
/* Random numbers. */
#include "platform/linux/glue.h"

#include <linux/random.h>

uint64_t cp_random_seed(void)
{
	uint64_t seed;

	get_random_bytes(&seed, sizeof(seed));
	return seed;
}
