// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/client_tables.h"

#include <array>
#include <string>

#include "cpctl/failure.h"
#include "cpctl/quoted.h"

namespace cpctl
{

namespace
{

constexpr std::array tables = {
	ClientTable{.name = "white",
		    .per_interface = true,
		    .add = ADD_WHITELIST_MAC,
		    .del = DEL_WHITELIST_MAC,
		    .get = GET_WHITELIST_MAC,
		    .check = CHECK_WHITELIST_MAC,
		    .flush = {}},
	ClientTable{.name = "auth",
		    .per_interface = true,
		    .add = ADD_AUTH_MAC,
		    .del = DEL_AUTH_MAC,
		    .get = GET_AUTH_MAC,
		    .check = {},
		    .flush = {}},
	ClientTable{.name = "login",
		    .per_interface = true,
		    .add = ADD_LOGIN_MAC,
		    .del = DEL_LOGIN_MAC,
		    .get = GET_LOGIN_MAC,
		    .check = CHECK_LOGIN_MAC,
		    .flush = {}},
	ClientTable{.name = "ga-white",
		    .per_interface = true,
		    .add = ADD_GA_WHITELIST_MAC,
		    .del = DEL_GA_WHITELIST_MAC,
		    .get = GET_GA_WHITELIST_MAC,
		    .check = CHECK_GA_WHITELIST_MAC,
		    .flush = FLUSH_GA_WHITELIST_TABLE},
	ClientTable{.name = "mac-auth-fallback",
		    .per_interface = true,
		    .add = ADD_MAC_AUTH_FALLBACK,
		    .del = DEL_MAC_AUTH_FALLBACK,
		    .get = GET_MAC_AUTH_FALLBACK,
		    .check = CHECK_MAC_AUTH_FALLBACK,
		    .flush = FLUSH_MAC_AUTH_FALLBACK},
	ClientTable{.name = "mirel-white",
		    .per_interface = false,
		    .add = ADD_MIREL_WHITE_LIST_MAC,
		    .del = DEL_MIREL_WHITE_LIST_MAC,
		    .get = GET_MIREL_WHITE_LIST_MAC,
		    .check = {},
		    .flush = {}},
	ClientTable{.name = "mirel-black",
		    .per_interface = false,
		    .add = ADD_MIREL_BLACK_LIST_MAC,
		    .del = DEL_MIREL_BLACK_LIST_MAC,
		    .get = GET_MIREL_BLACK_LIST_MAC,
		    .check = {},
		    .flush = {}},
};

} // namespace

std::span<const ClientTable> client_tables()
{
	return tables;
}

const ClientTable &find_client_table(std::string_view name)
{
	std::string known;
	for (const ClientTable &table : tables) {
		if (table.name == name) {
			return table;
		}
		known += known.empty() ? "" : ", ";
		known += table.name;
	}
	throw usage_failure(quoted(name) + " is no table of clients: choose one of " + known);
}

} // namespace cpctl
