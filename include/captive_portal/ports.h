/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * Redirect ports: where the access point's own web service must listen, and what each port tells it.
 *
 * A client's web request that may not pass is rewritten in place to the access point's own address and one of these
 * TCP ports (host order here); the reply is rewritten back, so that the client sees the server that it asked.
 *
 *   reason                                         HTTP (80)            HTTPS (443)
 *   not logged in, on interface i                  cp_http_port(i)      cp_https_port(i)
 *   not logged in, interface in mode 7             90                   91
 *   destination is the social-login address        83                   84
 *   client on the MIREL black list                 86                   87
 *   DNS-filter address                             88                   89
 *   logout address                                 82 (any port of the client's choice)
 *   reputation rule k, k = 0..16                   1025 + k             1042 + k
 */
#ifndef CAPTIVE_PORTAL_PORTS_H
#define CAPTIVE_PORTAL_PORTS_H

#include "captive_portal/marks.h"

enum cp_port {
	CP_PORT_HTTP = 80,
	CP_PORT_HTTPS = 443,
	CP_PORT_LOGOUT = 82,
	CP_PORT_SOCIAL_LOGIN_HTTP = 83,
	CP_PORT_SOCIAL_LOGIN_HTTPS = 84,
	CP_PORT_MIREL_HTTP = 86,
	CP_PORT_MIREL_HTTPS = 87,
	CP_PORT_DNS_FILTER_HTTP = 88,
	CP_PORT_DNS_FILTER_HTTPS = 89,
	CP_PORT_MODE_7_HTTP = 90,
	CP_PORT_MODE_7_HTTPS = 91,
	CP_PORT_REPUTATION_HTTP_FIRST = 1025,
	CP_PORT_REPUTATION_HTTPS_FIRST = CP_PORT_REPUTATION_HTTP_FIRST + CP_REPUTATION_RULES,
	CP_PORT_REPUTATION_LAST = CP_PORT_REPUTATION_HTTPS_FIRST + CP_REPUTATION_RULES - 1,
	CP_PORT_FIRST_INTERFACE_HTTP = 10081,
	CP_PORT_STEP_PER_RADIO = 10000,
	CP_PORT_HTTPS_STEP = 363,
	CP_PORT_DNS = 53,
	CP_PORT_DHCP_CLIENT = 68,
};

/* Port of intercepted HTTP of wireless interface `index` (0 to 23): 10081..10088, 20081..20088, 30081..30088. */
CP_CONSTANT_FUNCTION uint16_t cp_http_port(uint32_t index)
{
	return (uint16_t)(CP_PORT_FIRST_INTERFACE_HTTP + CP_PORT_STEP_PER_RADIO * (index / CP_VAPS_PER_RADIO) +
			  index % CP_VAPS_PER_RADIO);
}

/* Port of intercepted HTTPS of wireless interface `index`: 10444..10451, 20444..20451, 30444..30451. */
CP_CONSTANT_FUNCTION uint16_t cp_https_port(uint32_t index)
{
	return (uint16_t)(cp_http_port(index) + CP_PORT_HTTPS_STEP);
}

#endif
