/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * Packet marks: how the module's hooks, and a firewall rule of the access point, talk about a packet.
 *
 * The gatekeeper hook (bridge pre-routing, priority -320) sets a mark, the portal check (priority -310) reads it. A
 * firewall rule between the two priorities may set one of the reputation marks. No other rule may use these values.
 */
#ifndef CAPTIVE_PORTAL_MARKS_H
#define CAPTIVE_PORTAL_MARKS_H

#include "captive_portal/interface_index.h"

enum cp_mark {
	/* Mark of "wlan-1-1"; see cp_interface_mark(). */
	CP_MARK_FIRST_INTERFACE = 5200,
	CP_MARK_STEP_PER_RADIO = 20,
	/* The client is on the MIREL black list while the MIREL portal is on. */
	MARK_MIREL_BLACK = 5302,
	/* A logged-in or authorised client sends to its interface's logout address. */
	MARK_LOGOUT = 5304,
	/* The destination hit reputation rule k, k = 0..16: MARK_REPUTATION_FIRST + k. Set outside the module only. */
	MARK_REPUTATION_FIRST = 5307,
	CP_REPUTATION_RULES = 17,
	MARK_REPUTATION_LAST = MARK_REPUTATION_FIRST + CP_REPUTATION_RULES - 1,
	/* TCP to the DNS-filter server while the DNS filter is on. */
	MARK_DNS_FILTER = 5324,
};

/* Mark of a client that is not yet admitted on wireless interface `index` (0 to 23): 5200 + 20 * radio + vap, both from 0. */
CP_CONSTANT_FUNCTION uint32_t cp_interface_mark(uint32_t index)
{
	return CP_MARK_FIRST_INTERFACE + CP_MARK_STEP_PER_RADIO * (index / CP_VAPS_PER_RADIO) +
	       index % CP_VAPS_PER_RADIO;
}

#endif
