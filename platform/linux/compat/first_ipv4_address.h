/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * The head of a device's IPv4 address list. It became an RCU pointer by type in 5.3; before, it was one in fact (freed
 * after a grace period) but not in name.
 */
#ifndef PLATFORM_LINUX_COMPAT_FIRST_IPV4_ADDRESS_H
#define PLATFORM_LINUX_COMPAT_FIRST_IPV4_ADDRESS_H

#include <linux/inetdevice.h>
#include <linux/rcupdate.h>
#include <linux/version.h>

/* Null when the list is empty. Called inside an RCU read section; the result is good until its end. */
static inline const struct in_ifaddr *first_ipv4_address(const struct in_device *in_dev)
{
#if LINUX_VERSION_CODE >= KERNEL_VERSION(5, 3, 0)
	return rcu_dereference(in_dev->ifa_list);
#else
	return READ_ONCE(in_dev->ifa_list);
#endif
}

#endif
