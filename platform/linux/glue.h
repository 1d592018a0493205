/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * First include of every file of the Linux platform: the kernel's integer types, the seam, and the few calls that one
 * file of the platform makes in another.
 */
#ifndef PLATFORM_LINUX_GLUE_H
#define PLATFORM_LINUX_GLUE_H

#include <linux/types.h>

#include "platform/linux/compat/supported_kernels.h"
#include "platform/platform.h"

struct sk_buff;

/*
 * Makes the headers of a packet that is not linear readable, as far as memory and the packet allow. May move the packet's
 * data: pointers taken before are dead.
 */
void pull_headers(struct sk_buff *skb);

/*
 * Returns when nothing is left of cp_free_large_after_readers(): its callback is the module's text. Process context,
 * and nobody calls that function any more.
 */
void wait_for_deferred_frees(void);

/*
 * Whether the proc root has this entry. The kernel answers a second entry of one name with a stack trace, so it is looked
 * for first. It is not found where the caller has no proc file system mounted; then the trace is all the harm. Process
 * context.
 */
bool proc_name_is_taken(const char *name);

/* Takes off whatever hooks are registered, and returns when none of them runs any more. Process context. */
void take_hooks_off(void);

#endif
