/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * Packet hooks of the bridge family. From 4.16 on the family is an option of the kernel's configuration; without it
 * hook registration fails at run time with a warning, so the build says it first.
 */
#ifndef PLATFORM_LINUX_COMPAT_BRIDGE_HOOKS_H
#define PLATFORM_LINUX_COMPAT_BRIDGE_HOOKS_H

#include <linux/netfilter.h>
#include <linux/netfilter_bridge.h>
#include <linux/version.h>

#if LINUX_VERSION_CODE >= KERNEL_VERSION(4, 16, 0) && !defined(CONFIG_NETFILTER_FAMILY_BRIDGE)
#error "captive_portal needs bridge hooks: configure the kernel with CONFIG_BRIDGE_NF_EBTABLES or CONFIG_NF_TABLES_BRIDGE"
#endif

#endif
