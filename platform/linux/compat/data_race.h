/* SPDX-License-Identifier: GPL-2.0-only */
/* data_race(expression): a read that may meet a write, and on purpose. Kernels before 5.8 have nothing to tell that to. */
#ifndef PLATFORM_LINUX_COMPAT_DATA_RACE_H
#define PLATFORM_LINUX_COMPAT_DATA_RACE_H

#include <linux/compiler.h>

#ifndef data_race
#define data_race(expression) (expression)
#endif

#endif
