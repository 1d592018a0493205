/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * Walled-garden records: which domains and addresses a client may reach before login, written by command 3 and read
 * by command 4.
 *
 * A domain rule holds a pattern. Without "*" and "?" it is an exact, case-sensitive name. Both signs mean the same:
 * any run of characters, none included. The text before the first sign is anchored at the start of the name, and
 * unless the pattern ends with a sign, the name must end with its last piece; each piece is taken at its left-most
 * place and never tried again further right, so "*.example" does not match "a.example.example".
 * Default rules are exact names that hold for every interface.
 */
#ifndef CAPTIVE_PORTAL_WALLED_GARDEN_H
#define CAPTIVE_PORTAL_WALLED_GARDEN_H

#include "captive_portal/interface_index.h"

/* Sub-commands of WALLED_GARDEN_IOCTL_SET; anything else fails with EPERM. */
enum wg_set_command {
	/* Switches the walled garden of row `iface` by `enable_value`. */
	WALLED_GARDEN = 0,
	/* Replaces all default rules by the `domain_name`s of the first `rule_number` rules. */
	UPDATE_DEFAULT_RULE = 1,
	/* Replaces the rules of row `iface` by the first `rule_number` rules, and its switch by `enable_value`. */
	UPDATE_RULE = 2,
	/* As UPDATE_RULE for the MIREL row, whatever `iface` says. */
	UPDATE_MIREL_RULE = 3,
};

/* Sub-commands of WALLED_GARDEN_IOCTL_GET; anything else returns the record as sent, result 0. */
enum wg_get_command {
	/* Switch and rules of row `iface`, 0..23; any other row comes back as sent. */
	GET_WALLED_GARDEN_RULE = 4,
	/* Default rules up to the first empty one; with none, `rule_number` comes back as sent. */
	GET_DEFAULT_RULE = 5,
};

enum wg_limits {
	WG_DOMAIN_NAME_SIZE = 128,
	WG_RULES_PER_RECORD = 24,
	WG_DEFAULT_RULES = 36,
};

/* Rule types; every value but 0 is an address rule. */
enum wg_rule_type {
	WG_RULE_DOMAIN = 0,
	WG_RULE_ADDRESS = 1,
};

struct wg_rule {
	uint32_t rule_type; /* enum wg_rule_type */
	uint32_t ip_addr;   /* address rules: IPv4, network order */
	uint32_t netmask;   /* address rules: network order; 0 matches every address */
	/*
	 * Domain rules: pattern, 127 characters are kept; default rules: 128. An address rule's is asked about names too;
	 * leave it empty there, and it matches the empty name alone.
	 */
	char domain_name[WG_DOMAIN_NAME_SIZE];
};

CP_ASSERT_SIZE(struct wg_rule, 140);
CP_ASSERT_OFFSET(struct wg_rule, rule_type, 0);
CP_ASSERT_OFFSET(struct wg_rule, ip_addr, 4);
CP_ASSERT_OFFSET(struct wg_rule, netmask, 8);
CP_ASSERT_OFFSET(struct wg_rule, domain_name, 12);

/*
 * Record of commands 3 (copied in) and 4 (copied in, filled, copied back whole). Command 3: a row outside 0..27 fails
 * with EPERM, more than 24 rules with EINVAL, both with nothing changed; a negative `rule_number` acts as 0.
 * Command 4 writes of each rule only what its type needs: address rules their address and mask, domain rules their
 * pattern and its NUL; the other bytes come back as sent.
 */
struct wg_cmd {
	uint32_t cmd; /* enum wg_set_command or wg_get_command */
	int32_t iface;
	uint32_t enable_value;
	int32_t rule_number; /* rules that follow */
	struct wg_rule rules[WG_RULES_PER_RECORD];
};

CP_ASSERT_SIZE(struct wg_cmd, 3376);
CP_ASSERT_OFFSET(struct wg_cmd, cmd, 0);
CP_ASSERT_OFFSET(struct wg_cmd, iface, 4);
CP_ASSERT_OFFSET(struct wg_cmd, enable_value, 8);
CP_ASSERT_OFFSET(struct wg_cmd, rule_number, 12);
CP_ASSERT_OFFSET(struct wg_cmd, rules, 16);

#endif
