// SPDX-License-Identifier: GPL-2.0-only
#include "portal/portal_commands.h"

#include "base/atomic_word.h"
#include "base/in_aton.h"
#include "base/lock.h"
#include "base/text.h"
#include "garden/walled_garden.h"
#include "portal/interface_table.h"

namespace captive_portal
{

namespace
{

constexpr int32_t refused = -1;

// One of the sub-commands that store `enable_value` in a row: log line first, then the range of `iface`, then the store.
int32_t store_in_row(const char *name, int32_t iface, uint32_t cp_row::*member, uint32_t value)
{
	cp_log(CP_LOG_DEBUG, "[captive portal]if_device_write_cp: %s iface=%d enable_value=%d\n", name, iface,
	       static_cast<int32_t>(value));
	if (static_cast<uint32_t>(iface) >= CP_ROWS) {
		return refused;
	}
	store_word(captive_portal_table[iface].*member, value);
	return 0;
}

int32_t store_logout_address(const cp_cmd &command)
{
	const Text value = text_of_field(command.value);
	cp_log(CP_LOG_DEBUG, "[captive portal]if_device_write_cp: LOGOUT_IP_NOTIFY iface=%d value=%.16s\n",
	       command.iface, command.value);
	if (static_cast<uint32_t>(command.iface) >= CP_ROWS) {
		return refused;
	}
	cp_row &row = captive_portal_table[command.iface];
	store_text(row.logout_ip, value);
	store_word(row.logout_address, in_aton(text_of_field(row.logout_ip)));
	return 0;
}

} // namespace

int32_t if_device_write_cp(const cp_cmd &command)
{
	// Also for a sub-command that is not known: the lock is taken before anything is looked at.
	const LockGuard guard(Lock::cp);
	switch (command.cmd) {
	case CP_WALLED_GARDEN:
		return store_in_row("CP_WALLED_GARDEN", command.iface, &cp_row::cp_walled_garden, command.enable_value);
	case CAPTIVE_PORTAL:
		return store_in_row("CAPTIVE_PORTAL", command.iface, &cp_row::cp_mode, command.enable_value);
	case CAPTIVE_PORTAL_MIREL:
		return store_in_row("CAPTIVE_PORTAL", CP_ROW_MIREL, &cp_row::cp_mode, command.enable_value);
	case BLOCK_HTTPS:
		return store_in_row("BLOCK_HTTPS", command.iface, &cp_row::block_https, command.enable_value);
	case LOGOUT_IP_NOTIFY:
		return store_logout_address(command);
	case DNS_FILTER_ENABLE:
		cp_log(CP_LOG_DEBUG, "[captive portal]if_device_write_cp: DNS_FILTER_ENABLE enable_value=%d\n",
		       static_cast<int32_t>(command.enable_value));
		store_word(dns_filter_activate, command.enable_value);
		return 0;
	default:
		return refused;
	}
}

int32_t get_captive_portal_status(cp_status &record)
{
	const LockGuard guard(Lock::cp);
	if (record.cmd != CP_GET_STATUS || record.iface > CP_STATUS_LAST_ROW) {
		return 0;
	}
	const cp_row &row = captive_portal_table[record.iface];
	record.mark = row.mark;
	record.cp_mode = row.cp_mode;
	// Under cp_lock only: one word of another table.
	record.walled_garden = load_word(walled_garden_table[record.iface].enable_value);
	record.block_https = row.block_https;
	record.ap_addr = load_word(ap_addr).raw;
	return 0;
}

void set_gateway(Ipv4Address address)
{
	const LockGuard guard(Lock::gateway);
	store_word(ap_gateway, address);
}

int32_t get_gateway(Ipv4Address &out)
{
	const LockGuard guard(Lock::gateway);
	out = ap_gateway;
	return 0;
}

} // namespace captive_portal
