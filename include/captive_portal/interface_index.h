/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * Interface index: how a wireless interface, or one of four special rows, is numbered everywhere.
 *
 * Index 0 to 23 are the wireless interfaces "wlan-R-V", radio R = 1..3, virtual access point V = 1..8, radio first:
 * index = (R - 1) * 8 + (V - 1); "wlan-1-1" is 0, "wlan-1-8" is 7, "wlan-2-1" is 8, "wlan-3-8" is 23. A name that is
 * parsed is accepted when the combined index, an unsigned 32-bit number, is at most 23; R and V are not tested one by
 * one, so "wlan-2-0" is index 7 and "wlan-1-9" is index 8. Daemons may come to rely on this: it is deliberate.
 *
 * Rows 24 to 27 exist in the tables of the portal and of the walled garden only.
 */
#ifndef CAPTIVE_PORTAL_INTERFACE_INDEX_H
#define CAPTIVE_PORTAL_INTERFACE_INDEX_H

#include "captive_portal/fixed_width.h"

enum cp_interface_index {
	CP_RADIOS = 3,
	CP_VAPS_PER_RADIO = 8,
	CP_WIRELESS_INTERFACES = CP_RADIOS * CP_VAPS_PER_RADIO,
	/* Connections that a special mark redirected: logout address, DNS filter, reputation rules. */
	CP_ROW_SPECIAL_MARK = 24,
	/* Connections of interfaces whose portal mode is 7. */
	CP_ROW_MODE_7 = 25,
	/* Connections to the social-login address. */
	CP_ROW_SOCIAL_LOGIN = 26,
	/* The MIREL row: mode, walled garden and connections of clients on the MIREL black list. */
	CP_ROW_MIREL = 27,
	CP_ROWS = 28,
};

/* OWE companion interfaces are "wlan-R-14" to "wlan-R-16"; their row is (R - 1) * 3 + (V - 14), 0 to 8. */
enum cp_owe_index {
	CP_OWE_FIRST_VAP = 14,
	CP_OWE_VAPS_PER_RADIO = 3,
	CP_OWE_LAST_VAP = CP_OWE_FIRST_VAP + CP_OWE_VAPS_PER_RADIO - 1,
	CP_OWE_INTERFACES = CP_RADIOS * CP_OWE_VAPS_PER_RADIO,
};

/* Bytes of an interface name field, its NUL included. A field without a NUL ends at its 16th byte. */
enum { CP_INTERFACE_NAME_SIZE = 16 };

/* Index of "wlan-radio-vap". Any numbers are taken; a result above 23 means: no such interface. */
CP_CONSTANT_FUNCTION uint32_t cp_interface_index(uint32_t radio, uint32_t vap)
{
	return radio * CP_VAPS_PER_RADIO + vap - (CP_VAPS_PER_RADIO + 1);
}

/* Row of the OWE companion "wlan-radio-vap". Any numbers are taken; a result above 8 means: no such row. */
CP_CONSTANT_FUNCTION uint32_t cp_owe_index(uint32_t radio, uint32_t vap)
{
	return (radio - 1) * CP_OWE_VAPS_PER_RADIO + (vap - CP_OWE_FIRST_VAP);
}

#endif
