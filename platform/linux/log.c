// SPDX-License-Identifier: GPL-2.0-only
/* The kernel log. */
#include "platform/linux/glue.h"

#include <linux/kernel.h>
#include <linux/printk.h>

void cp_log(enum cp_log_level level, const char *format, ...)
{
	struct va_format line;
	va_list arguments;

	va_start(arguments, format);
	line.fmt = format;
	line.va = &arguments;
	/* The level is part of printk's literal format, hence one call for each. */
	switch (level) {
	case CP_LOG_ERR:
		printk(KERN_ERR "%pV", &line);
		break;
	case CP_LOG_DEBUG:
		printk(KERN_DEBUG "%pV", &line);
		break;
	case CP_LOG_DEFAULT:
		printk("%pV", &line);
		break;
	}
	va_end(arguments);
}
