/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * The calls of a proc file, and the data given to its entry. From 5.6 on the calls have a structure of their own; before,
 * they were the file operations of any file.
 *
 * The seek call is named, because an empty one means different things: any file's seek at first, none from 6.0 on.
 */
#ifndef PLATFORM_LINUX_COMPAT_PROC_OPERATIONS_H
#define PLATFORM_LINUX_COMPAT_PROC_OPERATIONS_H

#include <linux/fs.h>
#include <linux/module.h>
#include <linux/proc_fs.h>
#include <linux/seq_file.h>
#include <linux/version.h>

#if LINUX_VERSION_CODE >= KERNEL_VERSION(5, 6, 0)

typedef struct proc_ops proc_file_operations;

#define PROC_FILE_OPERATIONS(read_call, write_call)                                                                    \
	{                                                                                                              \
		.proc_read = read_call, .proc_write = write_call, .proc_lseek = default_llseek                         \
	}
#define PROC_SEQUENCE_OPERATIONS(open_call)                                                                            \
	{                                                                                                              \
		.proc_open = open_call, .proc_read = seq_read, .proc_lseek = seq_lseek, .proc_release = seq_release    \
	}

#else

typedef struct file_operations proc_file_operations;

#define PROC_FILE_OPERATIONS(read_call, write_call)                                                                    \
	{                                                                                                              \
		.owner = THIS_MODULE, .read = read_call, .write = write_call, .llseek = default_llseek                 \
	}
#define PROC_SEQUENCE_OPERATIONS(open_call)                                                                            \
	{                                                                                                              \
		.owner = THIS_MODULE, .open = open_call, .read = seq_read, .llseek = seq_lseek, .release = seq_release \
	}

#endif

#if LINUX_VERSION_CODE >= KERNEL_VERSION(5, 17, 0)
#define proc_entry_data pde_data
#else
#define proc_entry_data PDE_DATA
#endif

#endif
