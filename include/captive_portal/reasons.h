/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * Reasons: what can become of a frame, a redirected connection, or an address in a DNS answer. The module counts each of
 * them per interface; /proc/captive_portal/counters gives the counts by the names below.
 *
 * The table grows at its end only: numbers and names stay what they are. Each row is
 *
 *	REASON(ENUMERATOR, "name", "what happened")
 */
#ifndef CAPTIVE_PORTAL_REASONS_H
#define CAPTIVE_PORTAL_REASONS_H

#include "captive_portal/interface_index.h"

/* clang-format off */
#define CP_REASONS(REASON)                                                                                             \
	/* Gatekeeper: clients that no table admits, and others. */                                                    \
	REASON(PASS_DISCONNECTED,   "pass-disconnected",    "passed: the disconnection behaviour lets it")             \
	REASON(MARK_PORTAL,         "marked-portal",        "marked: the client is in no table, the portal is on")     \
	REASON(MARK_BLACK,          "marked-mirel-black",   "marked: the client is on the MIREL black list")           \
	REASON(MARK_FILTER,         "marked-dns-filter",    "marked: TCP to the DNS-filter address")                   \
	REASON(MARK_LOGOUT_ADDRESS, "marked-logout",        "marked: an admitted client calls its logout address")     \
	REASON(DROP_SENDER,         "bad-sender",           "dropped: the sender's address is zero or a group's")      \
	REASON(DROP_WIRED_PORT,     "portal-port-wired",    "dropped: from the wired side to a port of the portal")    \
	REASON(DROP_PORTAL_PORT,    "portal-port-wireless", "dropped: to a port of the portal that is not this interface's") \
	REASON(DROP_NO_ROW,         "unknown-interface",    "dropped: from a wireless port that has no row")           \
	REASON(DROP_DISCONNECTED,   "drop-disconnected",    "dropped: the disconnection behaviour does not let it")    \
	/* Portal check: clients that are not admitted. */                                                             \
	REASON(PASS_DHCP_DNS,       "dhcp-dns",             "passed: DHCP or DNS")                                     \
	REASON(PASS_INTERNET,       "internet-passes",      "passed: the mode lets the internet, the gateway and ping pass") \
	REASON(PASS_AP_WEB,         "access-point-web",     "passed: to a web port of the access point itself")        \
	REASON(PASS_HTTPS,          "https-passes",         "passed: HTTPS, which is not blocked")                     \
	REASON(PASS_GARDEN,         "walled-garden",        "passed: to an address of the walled garden")              \
	REASON(PASS_NO_IDENTITY,    "no-bridge-address",    "passed: the access point's own address cannot be found")  \
	REASON(PASS_PROTOCOL,       "other-protocol",       "passed: neither TCP nor UDP nor ICMP")                    \
	REASON(DROP_NOT_IPV4,       "ipv6",                 "dropped: IPv6, or no EtherType")                          \
	REASON(DROP_CUT,            "cut-short",            "dropped: the packet ends before a field that decides")    \
	REASON(DROP_ICMP,           "icmp",                 "dropped: ICMP")                                           \
	REASON(DROP_UDP,            "udp",                  "dropped: UDP that is neither DHCP nor DNS")               \
	REASON(DROP_TCP_MODE,       "drop-tcp",             "dropped: the mode drops all TCP")                         \
	REASON(DROP_HTTPS,          "https-blocked",        "dropped: HTTPS to nothing in the walled garden")          \
	REASON(DROP_TCP_PORT,       "tcp-port",             "dropped: TCP that is not for a web port")                 \
	REASON(DROP_UNWRITABLE,     "not-rewritable",       "dropped: a packet that cannot be rewritten")              \
	REASON(REDIRECT_PORTAL,     "redirect-portal",      "redirected: to the interface's portal page")              \
	REASON(REDIRECT_MIREL,      "redirect-mirel",       "redirected: to the page for the MIREL black list")        \
	REASON(REDIRECT_MODE_7,     "redirect-internet-passes", "redirected: to the page of the mode that lets the internet pass") \
	REASON(REDIRECT_SOCIAL,     "redirect-social-login", "redirected: to the social login")                        \
	REASON(REDIRECT_LOGOUT,     "redirect-logout",      "redirected: to the logout page")                          \
	REASON(REDIRECT_FILTER,     "redirect-dns-filter",  "redirected: to the page of the DNS filter")               \
	REASON(REDIRECT_REPUTATION, "redirect-reputation",  "redirected: to the page of a reputation rule")            \
	/* Replies of the portal's web service, and their connections. */                                              \
	REASON(REPLY_REWRITTEN,     "reply-rewritten",      "rewritten: a reply, to look as if it came from where the client asked") \
	REASON(REPLY_UNKNOWN,       "reply-unknown",        "passed: a reply on a connection that is not recorded")    \
	REASON(CONNECTION_RECORDED, "connection-recorded",  "recorded: a redirected connection")                       \
	REASON(CONNECTION_LOST,     "connection-no-memory", "not recorded: no memory for a redirected connection")     \
	REASON(CONNECTION_ENDED,    "connection-ended",     "forgotten: a redirected connection that has ended")       \
	/* DNS answers, for all interfaces together. */                                                                \
	REASON(DNS_ANSWER,          "dns-answer",           "read: a DNS answer")                                      \
	REASON(DNS_UNREADABLE,      "dns-unreadable",       "not read: a DNS answer whose bytes could not be had")     \
	REASON(ADDRESS_STORED,      "address-stored",       "stored: an address, new to the cache")                    \
	REASON(ADDRESS_REFRESHED,   "address-refreshed",    "refreshed: an address that the cache has")                \
	REASON(ADDRESS_REFUSED,     "address-refused",      "refused: an address, because the cache is full")          \
	REASON(ADDRESS_LOST,        "address-no-memory",    "not stored: no memory for an address")                    \
	REASON(ADDRESS_EXPIRED,     "address-expired",      "forgotten: an address whose time has run out")               \
	/* Gatekeeper: clients that a table admits, by the table that decided; and where there is no portal. */        \
	REASON(ADMIT_LOGIN,         "login",                "passed: the client is on the login list")                 \
	REASON(ADMIT_AUTH,          "auth",                 "passed: the client is on the auth list")                  \
	REASON(ADMIT_WHITE,         "white",                "passed: the client is on the white list")                 \
	REASON(ADMIT_GA_WHITE,      "ga-white",             "passed: the client is on the ga-white list")              \
	REASON(ADMIT_FALLBACK,      "mac-auth-fallback",    "passed: the client is on the mac-auth-fallback list")     \
	REASON(ADMIT_MIREL_WHITE,   "mirel-white",          "passed: the client is on the MIREL white list")           \
	REASON(PASS_NO_PORTAL,      "no-portal",            "passed: the client is in no table, there is no portal")
/* clang-format on */

enum cp_reason {
#define CP_REASON_ENUMERATOR(enumerator, name, sentence) CP_REASON_##enumerator,
	CP_REASONS(CP_REASON_ENUMERATOR)
#undef CP_REASON_ENUMERATOR
		CP_REASON_COUNT,
};

/* Counts are kept for each row of interface_index.h, and here for what belongs to none. */
enum {
	CP_COUNTER_ROW_OTHER = CP_ROWS,
	CP_COUNTER_ROWS,
};

#endif
