// SPDX-License-Identifier: GPL-2.0-only
/* Time. */
#include "platform/linux/glue.h"

#include <linux/ktime.h>
#include <linux/timekeeping.h>

int64_t cp_wall_clock_seconds(void)
{
	return ktime_get_real_seconds();
}
