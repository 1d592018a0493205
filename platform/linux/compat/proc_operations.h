/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * The calls of a proc file. From 5.6 on they have a structure of their own; before, they were the file operations of
 * any file.
 *
 * The seek call is named, because an empty one means different things: any file's seek at first, none from 6.0 on.
 */
#ifndef PLATFORM_LINUX_COMPAT_PROC_OPERATIONS_H
#define PLATFORM_LINUX_COMPAT_PROC_OPERATIONS_H

#include <linux/fs.h>
#include <linux/module.h>
#include <linux/proc_fs.h>
#include <linux/version.h>

#if LINUX_VERSION_CODE >= KERNEL_VERSION(5, 6, 0)

typedef struct proc_ops proc_file_operations;

#define PROC_FILE_OPERATIONS(read_call, write_call)                                                                    \
	{                                                                                                              \
		.proc_read = read_call, .proc_write = write_call, .proc_lseek = default_llseek                         \
	}

#else

typedef struct file_operations proc_file_operations;

#define PROC_FILE_OPERATIONS(read_call, write_call)                                                                    \
	{                                                                                                              \
		.owner = THIS_MODULE, .read = read_call, .write = write_call, .llseek = default_llseek                 \
	}

#endif

#endif
