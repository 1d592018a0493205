// SPDX-License-Identifier: GPL-2.0-only
#include "base/fixed_addresses.h"

#include "base/atomic_word.h"
#include "base/in_aton.h"
#include "captive_portal/control.h"

namespace captive_portal
{

constinit Ipv4Address socialogin_addr = {};
constinit Ipv4Address dns_filter_addr = {};

void init_social_login_address()
{
	store_word(socialogin_addr, in_aton(text_of_field(CP_SOCIAL_LOGIN_ADDRESS)));
}

void init_dns_filter_address()
{
	store_word(dns_filter_addr, in_aton(text_of_field(CP_DNS_FILTER_ADDRESS)));
}

} // namespace captive_portal
