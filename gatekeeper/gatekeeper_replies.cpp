// SPDX-License-Identifier: GPL-2.0-only
// The gatekeeper commands that answer: a whole list or a setting, and whether one address is listed.
#include "gatekeeper/gatekeeper_commands.h"

#include "base/interface_name.h"
#include "base/lock.h"
#include "base/mutex.h"
#include "gatekeeper/client_tables.h"

namespace captive_portal
{

namespace
{

void get_list(gk_list_reply &reply, const MacList &list)
{
	const MutexGuard guard(Mutex::clients);
	reply.count = list.copy_out(reply.entries, GK_LIST_SLOTS);
}

void get_row_list(gk_list_reply &reply, const iface_mac_list *table)
{
	const Field<uint32_t> row = interface_index_of_name(text_of_field(reply.iface));
	if (row.has_value()) {
		get_list(reply, table[row.value()].list);
	}
}

void get_ovra_behavior(gk_list_reply &reply)
{
	const Field<uint32_t> row = interface_index_of_name(text_of_field(reply.iface));
	if (row.has_value()) {
		const LockGuard guard(Lock::gatekeeper);
		reply.behavior = ovra_behavior[row.value()].behavior;
		reply.status = ovra_behavior[row.value()].status;
	}
}

void get_owe_mapping(gk_list_reply &reply)
{
	const Field<uint32_t> row = owe_index_of_name(text_of_field(reply.owe_iface));
	if (row.has_value()) {
		char name[CP_INTERFACE_NAME_SIZE];
		const LockGuard guard(Lock::gatekeeper);
		owe_mapping_table[row.value()].iface.load(name);
		overwrite_text(reply.iface, text_of_field(name));
	}
}

// Table that a check sub-command looks into, null for an unknown one.
const iface_mac_list *checked_table(uint32_t number)
{
	switch (number) {
	case CHECK_WHITELIST_MAC:
		return white_list;
	case CHECK_LOGIN_MAC:
		return login_mac_table;
	case CHECK_GA_WHITELIST_MAC:
		return ga_white_list;
	case CHECK_MAC_AUTH_FALLBACK:
		return mac_auth_fallback;
	default:
		return nullptr;
	}
}

} // namespace

void get_gatekeeper_list(gk_list_reply &reply)
{
	switch (reply.cmd) {
	case GET_WHITELIST_MAC:
		return get_row_list(reply, white_list);
	case GET_AUTH_MAC:
		return get_row_list(reply, auth_mac_table);
	case GET_LOGIN_MAC:
		return get_row_list(reply, login_mac_table);
	case GET_OVRA_BEHAVIOR:
		return get_ovra_behavior(reply);
	case GET_MAPPING_OWE_VAP:
		return get_owe_mapping(reply);
	case GET_MIREL_BLACK_LIST_MAC:
		return get_list(reply, mirel_black_list);
	case GET_MIREL_WHITE_LIST_MAC:
		return get_list(reply, mirel_white_list);
	case GET_GA_WHITELIST_MAC:
		return get_row_list(reply, ga_white_list);
	case GET_MAC_AUTH_FALLBACK:
		return get_row_list(reply, mac_auth_fallback);
	default:
		return;
	}
}

void check_gatekeeper_list(gk_check_reply &reply)
{
	reply.found = 0;
	const iface_mac_list *const table = checked_table(reply.cmd);
	const Field<uint32_t> row = interface_index_of_name(text_of_field(reply.iface));
	if (table == nullptr || !row.has_value()) {
		return;
	}
	const MacAddress mac = MacAddress::from(reply.mac);
	const MutexGuard guard(Mutex::clients);
	reply.found = client_index.lists_of(mac.word(), row.value()).has(list_of_table(table)) ? 1 : 0;
}

} // namespace captive_portal
