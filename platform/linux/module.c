// SPDX-License-Identifier: GPL-2.0-only
/* Loading and unloading. */
#include "platform/linux/glue.h"

#include <linux/init.h>
#include <linux/module.h>

static int __init load_captive_portal(void)
{
	int error = captive_portal_init();

	/* The core leaves hooks and counters when it fails, and a failed load frees the text that the hooks would run. */
	if (error) {
		take_hooks_off();
		cp_counters_remove();
	}
	return error;
}

static void __exit unload_captive_portal(void)
{
	captive_portal_exit();
	wait_for_deferred_frees();
}

/*
 * The names that the macros give the two. Kernels before 5.0, and some after, do not hand on that __init and __exit make
 * a function cold, and compilers warn of a name that promises less than what it stands for.
 */
int __cold init_module(void);
void __cold cleanup_module(void);

module_init(load_captive_portal);
module_exit(unload_captive_portal);

MODULE_DESCRIPTION("Captive portal for bridged wireless clients");
MODULE_LICENSE("GPL");
