// SPDX-License-Identifier: GPL-2.0-only
#include "portal/interface_table.h"

#include "base/atomic_word.h"
#include "base/lock.h"
#include "portal/connections.h"

namespace captive_portal
{

constinit cp_row captive_portal_table[CP_ROWS] = {};
constinit Ipv4Address ap_gateway = {};
constinit Ipv4Address ap_addr = {};
constinit uint32_t dns_filter_activate = 0;
constinit uint64_t ap_mac = 0;

void store_ap_mac(const MacAddress &mac)
{
	uint64_t word = 0;
	__builtin_memcpy(&word, mac.bytes, sizeof(mac.bytes));
	store_word(ap_mac, word);
}

MacAddress load_ap_mac()
{
	const uint64_t word = load_word(ap_mac);
	MacAddress mac;
	__builtin_memcpy(mac.bytes, &word, sizeof(mac.bytes));
	return mac;
}

void init_captive_portal_table()
{
	{
		const LockGuard guard(Lock::cp);
		for (uint32_t index = 0; index < CP_WIRELESS_INTERFACES; ++index) {
			cp_row &row = captive_portal_table[index];
			store_word(row.mark, cp_interface_mark(index));
			store_word(row.http_port, cp_http_port(index));
			store_word(row.https_port, cp_https_port(index));
			store_word(row.cp_mode, static_cast<uint32_t>(CP_MODE_OFF));
			store_word(row.cp_walled_garden, 0U);
			store_word(row.block_https, static_cast<uint32_t>(CP_HTTPS_BLOCKED));
			__builtin_memset(row.logout_ip, 0, sizeof(row.logout_ip));
			store_word(row.logout_address, Ipv4Address{});
		}
		store_word(captive_portal_table[CP_ROW_MIREL].cp_mode, static_cast<uint32_t>(CP_MODE_OFF));
		store_word(captive_portal_table[CP_ROW_MIREL].cp_walled_garden, 0U);
	}
	// A hook may have recorded a connection since it was registered.
	free_connections();
}

void clear_access_point_addresses()
{
	store_ap_mac({});
	{
		const LockGuard guard(Lock::gateway);
		store_word(ap_gateway, {});
	}
	store_word(ap_addr, {});
}

} // namespace captive_portal
