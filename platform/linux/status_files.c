// SPDX-License-Identifier: GPL-2.0-only
/*
 * The status files, as sequences of their parts: the kernel's sequence file gives a reader whole parts, in a buffer that
 * grows until the largest fits. The kernel counts the readers that run, and taking a file away waits for them.
 */
#include "platform/linux/glue.h"

#include <linux/errno.h>
#include <linux/fs.h>
#include <linux/kernel.h>
#include <linux/proc_fs.h>
#include <linux/seq_file.h>

#include "platform/linux/compat/proc_operations.h"

enum { MAXIMAL_FILES = 5 };

/* Given to the core as the text: it says of which file a part is asked for, too. */
static struct seq_file *sequence_of(struct cp_status_text *text)
{
	return (struct seq_file *)text;
}

void cp_status_print(struct cp_status_text *text, const char *format, ...)
{
	va_list arguments;

	va_start(arguments, format);
	seq_vprintf(sequence_of(text), format, arguments);
	va_end(arguments);
}

static const struct cp_status_file *file_of(const struct seq_file *sequence)
{
	return sequence->private;
}

/* A part's place, made a pointer: no part is the null that ends a sequence. */
static void *part_at(const struct seq_file *sequence, loff_t position)
{
	return position < file_of(sequence)->parts ? (void *)(uintptr_t)(position + 1) : NULL;
}

static void *start_parts(struct seq_file *sequence, loff_t *position)
{
	return part_at(sequence, *position);
}

static void *next_part(struct seq_file *sequence, void *part, loff_t *position)
{
	++*position;
	return part_at(sequence, *position);
}

static void stop_parts(struct seq_file *sequence, void *part) {}

static int show_part(struct seq_file *sequence, void *part)
{
	file_of(sequence)->write_part((uintptr_t)part - 1, (struct cp_status_text *)sequence);
	return 0;
}

static const struct seq_operations parts = {
	.start = start_parts,
	.next = next_part,
	.stop = stop_parts,
	.show = show_part,
};

static int open_status(struct inode *inode, struct file *file)
{
	int error = seq_open(file, &parts);

	if (!error)
		((struct seq_file *)file->private_data)->private = proc_entry_data(inode);
	return error;
}

static const proc_file_operations status_operations = PROC_SEQUENCE_OPERATIONS(open_status);

static struct proc_dir_entry *directory_entry;
static struct proc_dir_entry *file_entries[MAXIMAL_FILES];

int cp_status_create(const struct cp_status_directory *directory)
{
	uint32_t i;

	if (directory->file_count > MAXIMAL_FILES)
		return -EINVAL;
	if (proc_name_is_taken(directory->name))
		return -EEXIST;
	directory_entry = proc_mkdir(directory->name, NULL);
	/* Under a null parent the files would land in the proc root. */
	if (!directory_entry)
		return -ENOMEM;
	for (i = 0; i < directory->file_count; i++) {
		const struct cp_status_file *file = &directory->files[i];

		file_entries[i] = proc_create_data(file->name, directory->mode, directory_entry, &status_operations,
						   (void *)file);
		if (!file_entries[i]) {
			cp_status_remove(directory);
			return -ENOMEM;
		}
	}
	return 0;
}

void cp_status_remove(const struct cp_status_directory *directory)
{
	uint32_t i;

	/* What was not made is null, and taking that away does nothing. */
	for (i = 0; i < MAXIMAL_FILES; i++) {
		proc_remove(file_entries[i]);
		file_entries[i] = NULL;
	}
	proc_remove(directory_entry);
	directory_entry = NULL;
}
