/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * The control device: how a daemon drives the module.
 *
 * Open /dev/CP_dev (one opener at a time: a second open fails with EBUSY; the module cannot be unloaded while it is
 * open) and call ioctl(fd, command, argument). The command is the bare number below, without direction or size bits.
 * The argument is the address of the command's record, except for ENV_SET_DEBUG_LEVEL, where it is the value itself.
 * Records have a fixed size and native (little-endian) byte order and are the same for 32-bit callers.
 *
 * Results, as ioctl() gives them:
 *   0         done; also a sub-command that was refused and logged (an invalid interface, no memory for a node)
 *   -1/EPERM  unknown command or sub-command, a record that could not be read, an index outside 0..27
 *   -1/EINVAL more walled-garden rules than a record holds
 *   -1/ENOMEM no memory for the walled-garden command's working copy
 *   > 0       reply commands (2, 4, 7, 9, 10): so many bytes of the reply could not be written; the whole size when
 *             the address range is not the caller's
 * ENOTTY and EFAULT never come from the module.
 *
 * Command 2 on real kernels: number 2 is also FIGETBSZ, which the kernel's file layer answers by itself for every
 * native call: it stores the file system's block size in the first four bytes of the record and returns 0, so the
 * record never reaches the module. docs/control-device.md says what each kernel and each kind of caller gets.
 */
#ifndef CAPTIVE_PORTAL_CONTROL_H
#define CAPTIVE_PORTAL_CONTROL_H

#include "captive_portal/fixed_width.h"

#define CP_DEVICE_NAME "CP_dev"
#define CP_DEVICE_PATH "/dev/" CP_DEVICE_NAME

enum cp_command {
	/* in: struct cp_cmd (portal.h). One portal setting of one interface. */
	CAPTIVE_PORTAL_IOCTL_SET = 1,
	/* in and out: struct cp_status (portal.h). See above for what native callers get instead. */
	CAPTIVE_PORTAL_IOCTL_GET = 2,
	/* in: struct wg_cmd (walled_garden.h). Walled-garden switch and rules. */
	WALLED_GARDEN_IOCTL_SET = 3,
	/* in and out: struct wg_cmd. Walled-garden rules. */
	WALLED_GARDEN_IOCTL_GET = 4,
	/* 5 is not assigned and answered like an unknown number. */
	/* in: 4 bytes, IPv4 address in network order. An unreadable address stores 0.0.0.0 and still returns 0. */
	GATEWAY_IOCTL_SET = 6,
	/* out: 4 bytes, IPv4 address in network order. */
	GATEWAY_IOCTL_GET = 7,
	/* in: struct gk_cmd (gatekeeper.h). Client MAC tables. */
	GATEKEEPER_IOCTL_SET = 8,
	/* in and out: struct gk_list_reply (gatekeeper.h). A whole list, or one setting. */
	GATEKEEPER_IOCTL_GET = 9,
	/* in and out: struct gk_check_reply (gatekeeper.h). Whether one MAC address is listed. */
	GATEKEEPER_IOCTL_CHECK = 10,
	/* argument: the new debug level itself, its low 32 bits taken as a signed number; no range check. */
	ENV_SET_DEBUG_LEVEL = 11,
};

/* The debug level right after the module's start. Lines of the packet path need 1, 2 or 3; 0 silences them all. */
enum { CP_DEFAULT_DEBUG_LEVEL = 1 };

/*
 * Fixed IPv4 addresses, dotted quads. Clients reach the social login at the first; TCP to the second is intercepted
 * while the DNS filter is on.
 */
#define CP_SOCIAL_LOGIN_ADDRESS "2.2.2.2"
#define CP_DNS_FILTER_ADDRESS "4.4.4.4"

/*
 * The social-login host: a name that is never part of any walled garden, whatever the rules say, so that a client who
 * has not logged in always meets the portal there. It lies under a name reserved for documentation: a product puts
 * its own host here, and nowhere else.
 */
#define CP_SOCIAL_LOGIN_HOST "social-login.example.com"

#endif
