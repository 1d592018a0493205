// SPDX-License-Identifier: GPL-2.0-only
/* The control device: a miscellaneous character device whose calls go straight to the core. */
#include "platform/linux/glue.h"

#include <linux/fs.h>
#include <linux/kernel.h>
#include <linux/miscdevice.h>
#include <linux/module.h>

static int open_device(struct inode *inode, struct file *file)
{
	return captive_portal_open();
}

static int release_device(struct inode *inode, struct file *file)
{
	return captive_portal_release();
}

static long control_device(struct file *file, unsigned int command, unsigned long argument)
{
	return captive_portal_ioctl((int32_t)command, argument);
}

#ifdef CONFIG_COMPAT
static long control_device_compat(struct file *file, unsigned int command, unsigned long argument)
{
	return captive_portal_compat_ioctl(command, argument);
}
#endif

/*
 * With an owner the file layer pins the module before it calls open, under the lock that misc_deregister() takes, and
 * lets it go after release has returned. So the reference count is 1 while the device is open, unloading is refused
 * meanwhile, and an open that meets an unload either pins the module in time or fails with ENODEV. A reference that
 * open itself takes could do neither: its own text may be gone before its first instruction.
 */
static const struct file_operations captive_portal_op = {
	.owner = THIS_MODULE,
	.unlocked_ioctl = control_device,
#ifdef CONFIG_COMPAT
	.compat_ioctl = control_device_compat,
#endif
	.open = open_device,
	.release = release_device,
};

static struct miscdevice captive_portal_misc_dev = {
	.fops = &captive_portal_op,
};

static bool record_is_linked;

int cp_misc_register(const struct cp_misc_device *device)
{
	int error;

	BUILD_BUG_ON(CP_MISC_DYNAMIC_MINOR != MISC_DYNAMIC_MINOR);
	captive_portal_misc_dev.minor = device->minor;
	captive_portal_misc_dev.name = device->name;
	error = misc_register(&captive_portal_misc_dev);
	record_is_linked = !error;
	return error;
}

void cp_misc_deregister(const struct cp_misc_device *device)
{
	/* The core asks for this after a failed registration too; the kernel warns about a record that it never linked. */
	if (!record_is_linked)
		return;
	misc_deregister(&captive_portal_misc_dev);
	record_is_linked = false;
}

/* The file layer has pinned the module before the core asks; see captive_portal_op. */
void cp_module_get(void) {}

void cp_module_put(void) {}
