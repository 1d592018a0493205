// SPDX-License-Identifier: GPL-2.0-only
/* Text. */
#include "platform/linux/glue.h"

#include <linux/kernel.h>

size_t cp_format(char *out, size_t size, const char *format, ...)
{
	va_list arguments;
	size_t length;

	va_start(arguments, format);
	length = vscnprintf(out, size, format, arguments);
	va_end(arguments);
	return length;
}
