/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * Gatekeeper records: the client MAC tables, written by command 8, read by command 9, tested by command 10.
 *
 * Numbers are native; MAC addresses are 6 bytes in transmission order; names are text ended by NUL, or by the end of
 * their 16-byte field. "The row" is the interface that `iface` names (interface_index.h).
 */
#ifndef CAPTIVE_PORTAL_GATEKEEPER_H
#define CAPTIVE_PORTAL_GATEKEEPER_H

#include "captive_portal/interface_index.h"

enum { CP_MAC_SIZE = 6 };

/*
 * Sub-commands of GATEKEEPER_IOCTL_SET, in gk_cmd.cmd. Lists keep the order of adding and may hold a MAC address
 * twice; DEL removes the first match; a missing address is no error. A known sub-command always returns 0: an invalid
 * interface name or missing memory is told in the kernel log only, so read back what must be there. Any number not
 * listed here returns EPERM.
 */
enum gk_set_command {
	ADD_WHITELIST_MAC = 0,
	DEL_WHITELIST_MAC = 1,
	ADD_AUTH_MAC = 2,
	DEL_AUTH_MAC = 3,
	ADD_LOGIN_MAC = 4,
	DEL_LOGIN_MAC = 5,
	/* Empties the row's five lists (white list, ga white list, MAC-auth fallback, login, auth); iface "all": every row's. */
	FLUSH_CAPTIVE_PORTAL_TABLE = 9,
	/* Stores `behavior` (enum ovra_disconnection_behavior) and `status` for the row. */
	SET_OVRA_BEHAVIOR = 10,
	/* Frames on `owe_iface` ("wlan-R-14" to "wlan-R-16") are judged as if they came on `iface`. */
	ADD_MAPPING_OWE_VAP = 12,
	/* Clears every OWE mapping and the names of the OWE interfaces with it. */
	FLUSH_MAPPING_OWE_VAP = 16,
	ADD_MIREL_BLACK_LIST_MAC = 22,
	DEL_MIREL_BLACK_LIST_MAC = 23,
	/* Also removes the address from the MIREL black list. */
	ADD_MIREL_WHITE_LIST_MAC = 24,
	/* Also removes the address from the MIREL black list. */
	DEL_MIREL_WHITE_LIST_MAC = 25,
	ADD_GA_WHITELIST_MAC = 26,
	DEL_GA_WHITELIST_MAC = 27,
	/* iface "all": every row's. */
	FLUSH_GA_WHITELIST_TABLE = 30,
	ADD_MAC_AUTH_FALLBACK = 31,
	DEL_MAC_AUTH_FALLBACK = 32,
	/* iface "all": every row's. */
	FLUSH_MAC_AUTH_FALLBACK = 34,
};

/*
 * Sub-commands of GATEKEEPER_IOCTL_GET, in gk_list_reply.cmd. An unknown number or an invalid interface returns the
 * record as it was sent, with result 0.
 */
enum gk_get_command {
	GET_WHITELIST_MAC = 6,
	GET_AUTH_MAC = 7,
	GET_LOGIN_MAC = 8,
	/* Writes `behavior` and `status`, not `count`. */
	GET_OVRA_BEHAVIOR = 11,
	/* The row is chosen by `owe_iface`; writes the paired interface's name and its NUL into `iface`, not `count`. */
	GET_MAPPING_OWE_VAP = 14,
	GET_MIREL_BLACK_LIST_MAC = 20,
	GET_MIREL_WHITE_LIST_MAC = 21,
	GET_GA_WHITELIST_MAC = 28,
	GET_MAC_AUTH_FALLBACK = 33,
};

/* Sub-commands of GATEKEEPER_IOCTL_CHECK, in gk_check_reply.cmd. Anything else, or an invalid interface: `found` is 0. */
enum gk_check_command {
	CHECK_WHITELIST_MAC = 18,
	CHECK_LOGIN_MAC = 19,
	CHECK_GA_WHITELIST_MAC = 29,
	CHECK_MAC_AUTH_FALLBACK = 35,
};

/* What a row does with clients in no list while its `status` is OVRA_DISCONNECTED. Other values drop every frame. */
enum ovra_disconnection_behavior {
	OVRA_PASS_ALL = 1,
	OVRA_PASS_DHCP = 2,
};

/* The `status` in which the behaviour applies; with any other value the portal decides. */
enum { OVRA_DISCONNECTED = 2 };

/* Record of command 8, copied in only. */
struct gk_cmd {
	uint32_t cmd;                           /* enum gk_set_command */
	uint32_t behavior;                      /* SET_OVRA_BEHAVIOR only */
	uint32_t status;                        /* SET_OVRA_BEHAVIOR only */
	char iface[CP_INTERFACE_NAME_SIZE];     /* "wlan-R-V", or "all" for the flush sub-commands */
	char owe_iface[CP_INTERFACE_NAME_SIZE]; /* ADD_MAPPING_OWE_VAP only */
	uint8_t mac[CP_MAC_SIZE];
	uint8_t padding[2]; /* ignored */
};

CP_ASSERT_SIZE(struct gk_cmd, 52);
CP_ASSERT_OFFSET(struct gk_cmd, cmd, 0);
CP_ASSERT_OFFSET(struct gk_cmd, behavior, 4);
CP_ASSERT_OFFSET(struct gk_cmd, status, 8);
CP_ASSERT_OFFSET(struct gk_cmd, iface, 12);
CP_ASSERT_OFFSET(struct gk_cmd, owe_iface, 28);
CP_ASSERT_OFFSET(struct gk_cmd, mac, 44);
CP_ASSERT_OFFSET(struct gk_cmd, padding, 50);

/* A slot of a list reply; only `mac` is written, the other bytes come back as they were sent. */
struct gk_list_slot {
	uint8_t unused_before[8];
	uint8_t mac[CP_MAC_SIZE];
	uint8_t unused_after[2];
};

CP_ASSERT_SIZE(struct gk_list_slot, 16);
CP_ASSERT_OFFSET(struct gk_list_slot, mac, 8);

/* A reply holds so many addresses; a longer list is reported up to here, and `count` says so many. */
enum { GK_LIST_SLOTS = 1034 };

/* Record of command 9, copied in, filled, copied back whole. What a sub-command does not write comes back as sent. */
struct gk_list_reply {
	uint32_t cmd;                           /* in: enum gk_get_command */
	uint32_t behavior;                      /* out: GET_OVRA_BEHAVIOR */
	uint32_t status;                        /* out: GET_OVRA_BEHAVIOR */
	char iface[CP_INTERFACE_NAME_SIZE];     /* in: the row; out: GET_MAPPING_OWE_VAP */
	char owe_iface[CP_INTERFACE_NAME_SIZE]; /* in: GET_MAPPING_OWE_VAP */
	uint32_t count;                         /* out: slots written, list sub-commands only */
	struct gk_list_slot entries[GK_LIST_SLOTS];
};

CP_ASSERT_SIZE(struct gk_list_reply, 16592);
CP_ASSERT_OFFSET(struct gk_list_reply, cmd, 0);
CP_ASSERT_OFFSET(struct gk_list_reply, behavior, 4);
CP_ASSERT_OFFSET(struct gk_list_reply, status, 8);
CP_ASSERT_OFFSET(struct gk_list_reply, iface, 12);
CP_ASSERT_OFFSET(struct gk_list_reply, owe_iface, 28);
CP_ASSERT_OFFSET(struct gk_list_reply, count, 44);
CP_ASSERT_OFFSET(struct gk_list_reply, entries, 48);

/* Record of command 10, copied in, filled, copied back whole. */
struct gk_check_reply {
	uint32_t cmd; /* in: enum gk_check_command */
	char iface[CP_INTERFACE_NAME_SIZE];
	uint8_t mac[CP_MAC_SIZE];
	uint8_t padding[2]; /* comes back as sent */
	uint32_t found;     /* out: 1 listed, 0 not */
};

CP_ASSERT_SIZE(struct gk_check_reply, 32);
CP_ASSERT_OFFSET(struct gk_check_reply, cmd, 0);
CP_ASSERT_OFFSET(struct gk_check_reply, iface, 4);
CP_ASSERT_OFFSET(struct gk_check_reply, mac, 20);
CP_ASSERT_OFFSET(struct gk_check_reply, padding, 26);
CP_ASSERT_OFFSET(struct gk_check_reply, found, 28);

#endif
