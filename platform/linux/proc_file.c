// SPDX-License-Identifier: GPL-2.0-only
/*
 * The proc file. Its calls go straight to the core; the kernel counts the ones that run, and taking the file away waits
 * for them. A file that a process still holds open afterwards gives errors, and keeps nothing of the module.
 */
#include "platform/linux/glue.h"

#include <linux/errno.h>
#include <linux/fs.h>
#include <linux/proc_fs.h>

#include "platform/linux/compat/proc_operations.h"

static ssize_t read_summary(struct file *file, char __user *buffer, size_t length, loff_t *position)
{
	int64_t reached = *position;
	ssize_t result = captive_portal_summary_read((cp_user_address)buffer, length, &reached);

	*position = reached;
	return result;
}

/* The position deliberately stays. */
static ssize_t write_summary(struct file *file, const char __user *buffer, size_t count, loff_t *position)
{
	return captive_portal_summary_write((cp_user_address)buffer, count);
}

static const proc_file_operations summary_operations = PROC_FILE_OPERATIONS(read_summary, write_summary);

static struct proc_dir_entry *directory_entry;
static struct proc_dir_entry *file_entry;

int cp_proc_create(const struct cp_proc_file *file)
{
	if (proc_name_is_taken(file->directory))
		return -EEXIST;
	directory_entry = proc_mkdir(file->directory, NULL);
	/* Without the directory there is no file: under a null parent it would land in the proc root. */
	if (!directory_entry)
		return -ENOMEM;
	file_entry = proc_create(file->name, file->mode, directory_entry, &summary_operations);
	if (!file_entry) {
		cp_proc_remove(file);
		return -ENOMEM;
	}
	return 0;
}

void cp_proc_remove(const struct cp_proc_file *file)
{
	/* Both take a null. */
	proc_remove(file_entry);
	proc_remove(directory_entry);
	file_entry = NULL;
	directory_entry = NULL;
}
