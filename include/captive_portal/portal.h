/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * Portal records: the per-interface portal settings, written by command 1 and read by command 2, and the gateway
 * address of commands 6 and 7 (4 bytes, IPv4 in network order, no record of its own).
 */
#ifndef CAPTIVE_PORTAL_PORTAL_H
#define CAPTIVE_PORTAL_PORTAL_H

#include "captive_portal/interface_index.h"

/*
 * Sub-commands of CAPTIVE_PORTAL_IOCTL_SET, in cp_cmd.cmd. `iface` is a row number, 0..27; outside it the call logs,
 * stores nothing and fails with EPERM (CAPTIVE_PORTAL_MIREL and DNS_FILTER_ENABLE do not look at it). Any number not
 * listed here fails with EPERM.
 */
enum cp_set_command {
	/* Stored for the daemon's own use; nothing in the module reads it. */
	CP_WALLED_GARDEN = 0,
	/* `enable_value` becomes the row's portal mode (enum cp_mode_value). */
	CAPTIVE_PORTAL = 1,
	/* `enable_value` becomes the row's block_https (enum cp_block_https). */
	BLOCK_HTTPS = 5,
	/* The portal mode of the MIREL row, whatever `iface` says. */
	CAPTIVE_PORTAL_MIREL = 7,
	/* `value` becomes the row's logout address, a dotted quad, its first 15 characters; an empty one clears it. */
	LOGOUT_IP_NOTIFY = 8,
	/* `enable_value` switches the DNS filter for all interfaces. */
	DNS_FILTER_ENABLE = 9,
};

/* Portal modes; every other non-zero value is "on" as well. */
enum cp_mode_value {
	CP_MODE_OFF = 0,
	CP_MODE_ON = 1,
	/* Destinations outside private networks, the gateway, and ping of the access point pass. */
	CP_MODE_INTERNET_PASSES = 7,
	/* Every TCP segment is dropped; DHCP and DNS pass. */
	CP_MODE_DROP_TCP = 8,
};

/* What happens to HTTPS of a client that is not logged in; values above 1 redirect it like HTTP. */
enum cp_block_https {
	CP_HTTPS_PASSES = 0,
	/* Dropped where the walled garden is on and nothing in it matches, redirected where it is off. The default. */
	CP_HTTPS_BLOCKED = 1,
};

/* Bytes of a dotted quad field, its NUL included. */
enum { CP_DOTTED_QUAD_SIZE = 16 };

/* Record of command 1, copied in only. */
struct cp_cmd {
	uint32_t cmd; /* enum cp_set_command */
	int32_t iface;
	uint32_t enable_value;
	char value[CP_DOTTED_QUAD_SIZE]; /* LOGOUT_IP_NOTIFY only */
};

CP_ASSERT_SIZE(struct cp_cmd, 28);
CP_ASSERT_OFFSET(struct cp_cmd, cmd, 0);
CP_ASSERT_OFFSET(struct cp_cmd, iface, 4);
CP_ASSERT_OFFSET(struct cp_cmd, enable_value, 8);
CP_ASSERT_OFFSET(struct cp_cmd, value, 12);

/* The only sub-command of CAPTIVE_PORTAL_IOCTL_GET, and the last row that it reads (row 24: zeros and `ap_addr`). */
enum {
	CP_GET_STATUS = 2,
	CP_STATUS_LAST_ROW = CP_ROW_SPECIAL_MARK,
};

/* Record of command 2, copied in, filled, copied back whole. Another `cmd` or row comes back as sent, result 0. */
struct cp_status {
	uint32_t cmd;           /* in: CP_GET_STATUS */
	uint32_t iface;         /* in: row, 0..24 */
	uint32_t mark;          /* out: packet mark of the interface */
	uint32_t cp_mode;       /* out: enum cp_mode_value */
	uint32_t walled_garden; /* out: walled garden of the interface on (non-zero) or off */
	uint32_t block_https;   /* out: enum cp_block_https */
	uint32_t ap_addr;       /* out: the access point's IPv4 address, network order; 0 until first needed */
	uint8_t reserved[292];  /* comes back as sent */
};

CP_ASSERT_SIZE(struct cp_status, 320);
CP_ASSERT_OFFSET(struct cp_status, cmd, 0);
CP_ASSERT_OFFSET(struct cp_status, iface, 4);
CP_ASSERT_OFFSET(struct cp_status, mark, 8);
CP_ASSERT_OFFSET(struct cp_status, cp_mode, 12);
CP_ASSERT_OFFSET(struct cp_status, walled_garden, 16);
CP_ASSERT_OFFSET(struct cp_status, block_https, 20);
CP_ASSERT_OFFSET(struct cp_status, ap_addr, 24);
CP_ASSERT_OFFSET(struct cp_status, reserved, 28);

#endif
