// SPDX-License-Identifier: GPL-2.0-only
/* Names at the proc root. */
#include "platform/linux/glue.h"

#include <linux/fs.h>
#include <linux/kernel.h>
#include <linux/magic.h>
#include <linux/namei.h>
#include <linux/path.h>

bool proc_name_is_taken(const char *name)
{
	char where[64];
	struct path path;
	bool taken;

	snprintf(where, sizeof(where), "/proc/%s", name);
	if (kern_path(where, 0, &path))
		return false;
	taken = path.dentry->d_sb->s_magic == PROC_SUPER_MAGIC;
	path_put(&path);
	return taken;
}
