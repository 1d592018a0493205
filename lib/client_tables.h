// SPDX-License-Identifier: GPL-2.0-only
// The module's tables of client MAC addresses, and the sub-commands that reach each of them.
#pragma once

#include <array>
#include <optional>
#include <string_view>

#include "captive_portal/gatekeeper.h"
#include "lib/captiveportal.h"

namespace libcaptiveportal
{

struct ClientTable {
	std::string_view name;
	// One list for each wireless interface, or one for all of them.
	bool per_interface;
	gk_set_command add;
	gk_set_command del;
	gk_get_command get;
	// Tests one address, whatever the length of the list. Without it the list is read and searched.
	std::optional<gk_check_command> check;
	// Empties the list of one interface or of all. Without it the addresses are deleted one by one.
	std::optional<gk_set_command> flush;
};

// By enum captiveportal_table.
inline constexpr std::array<ClientTable, CAPTIVEPORTAL_TABLES> client_tables = {{
	{"white", true, ADD_WHITELIST_MAC, DEL_WHITELIST_MAC, GET_WHITELIST_MAC, CHECK_WHITELIST_MAC, {}},
	{"auth", true, ADD_AUTH_MAC, DEL_AUTH_MAC, GET_AUTH_MAC, {}, {}},
	{"login", true, ADD_LOGIN_MAC, DEL_LOGIN_MAC, GET_LOGIN_MAC, CHECK_LOGIN_MAC, {}},
	{"ga-white", true, ADD_GA_WHITELIST_MAC, DEL_GA_WHITELIST_MAC, GET_GA_WHITELIST_MAC, CHECK_GA_WHITELIST_MAC,
	 FLUSH_GA_WHITELIST_TABLE},
	{"mac-auth-fallback", true, ADD_MAC_AUTH_FALLBACK, DEL_MAC_AUTH_FALLBACK, GET_MAC_AUTH_FALLBACK,
	 CHECK_MAC_AUTH_FALLBACK, FLUSH_MAC_AUTH_FALLBACK},
	{"mirel-white", false, ADD_MIREL_WHITE_LIST_MAC, DEL_MIREL_WHITE_LIST_MAC, GET_MIREL_WHITE_LIST_MAC, {}, {}},
	{"mirel-black", false, ADD_MIREL_BLACK_LIST_MAC, DEL_MIREL_BLACK_LIST_MAC, GET_MIREL_BLACK_LIST_MAC, {}, {}},
}};

} // namespace libcaptiveportal
