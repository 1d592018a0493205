/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * The range of kernels, stated here and nowhere else. docs/kernels.md says which of them were built and run. Every
 * other header of this directory is one capability that differs inside the range, named for what the kernel can do.
 */
#ifndef PLATFORM_LINUX_COMPAT_SUPPORTED_KERNELS_H
#define PLATFORM_LINUX_COMPAT_SUPPORTED_KERNELS_H

#include <linux/version.h>

#if LINUX_VERSION_CODE < KERNEL_VERSION(4, 4, 0)
#error "captive_portal needs Linux 4.4 or newer: older kernels pass other arguments to packet hooks"
#endif

#if LINUX_VERSION_CODE >= KERNEL_VERSION(6, 13, 0)
#error "captive_portal was not tried on kernels after Linux 6.12: look through platform/linux before raising this limit"
#endif

#endif
