// SPDX-License-Identifier: GPL-2.0-only
// The module's tables, filled to a size. Each function goes through the control device or through a function that the
// core offers to its own rooms, save where it says otherwise.
#pragma once

#include <cstdint>
#include <string>

#include "base/mac_address.h"
#include "captive_portal/captive_portal.h"
#include "portal/connections.h"

namespace captive_portal::bench
{

enum : uint32_t {
	// As many as a list reply shows.
	full_client_list = GK_LIST_SLOTS,
	full_row_rules = WG_RULES_PER_RECORD,
	full_default_rules = WG_RULES_PER_RECORD,
};

// ---- Portal ----

void set_portal(cp_set_command sub_command, int32_t row, uint32_t value);
void set_all_portals(uint32_t mode);

// ---- Clients ----

// How a table is written: its ADD sub-command and the DEL beside it.
struct ClientTable {
	const char *name;
	gk_set_command add;
	gk_set_command remove;
};
inline constexpr ClientTable login_table = {"login", ADD_LOGIN_MAC, DEL_LOGIN_MAC};
inline constexpr ClientTable auth_table = {"auth", ADD_AUTH_MAC, DEL_AUTH_MAC};
inline constexpr ClientTable white_table = {"white", ADD_WHITELIST_MAC, DEL_WHITELIST_MAC};
inline constexpr ClientTable ga_white_table = {"ga white", ADD_GA_WHITELIST_MAC, DEL_GA_WHITELIST_MAC};
inline constexpr ClientTable fallback_table = {"mac auth fallback", ADD_MAC_AUTH_FALLBACK, DEL_MAC_AUTH_FALLBACK};
inline constexpr ClientTable row_tables[] = {login_table, auth_table, white_table, ga_white_table, fallback_table};
inline constexpr ClientTable mirel_white_table = {"mirel white", ADD_MIREL_WHITE_LIST_MAC, DEL_MIREL_WHITE_LIST_MAC};
inline constexpr ClientTable mirel_black_table = {"mirel black", ADD_MIREL_BLACK_LIST_MAC, DEL_MIREL_BLACK_LIST_MAC};

[[nodiscard]] std::string interface_name(uint32_t row);
// A client that fill_clients() puts in the table: number 0 is the first of its list.
[[nodiscard]] MacAddress client_mac(const ClientTable &table, uint32_t row, uint32_t number);
// A gatekeeper command; `interface` is ignored where the sub-command has none.
void change_clients(gk_set_command sub_command, const std::string &interface, const MacAddress &mac = {});
// So many clients in each list: five tables of 24 rows, and the two MIREL lists.
void fill_clients(uint32_t in_each_list);
// The same for one list.
void fill_list(const ClientTable &table, uint32_t row, uint32_t count);

// ---- Walled garden ----

// The name that answers are for: 60 characters, in no rule of fill_rules().
inline constexpr char asked_name[] = "images-of-the-news.edge-12.content-network.assets.shop.test.";
static_assert(sizeof(asked_name) == 60 + 1);

// What an update of a row, or of the default rules for row -1, sends. Patterns are different in all rows and match no
// name that is used here; the rules in turn are an exact name, a tail behind a wildcard, and a pattern with two
// wildcards inside whose first piece the name begins with.
[[nodiscard]] wg_cmd rules_of_row(int32_t row, uint32_t rules);
void fill_rules(uint32_t in_each_row, uint32_t default_rules);
// One rule in all.
void one_rule();

// ---- Address cache ----

enum class Spread {
	over_all_buckets,
	in_one_bucket,
};

// The cached address of a number; its names differ from each other's.
[[nodiscard]] Ipv4Address cached_address(Spread spread, uint32_t number);
// So many addresses with two names each, in row 0's garden.
void fill_cache(Spread spread, uint32_t addresses);
// How many seconds the entries of fill_cache() live.
inline constexpr uint32_t cached_seconds = 600;

// ---- Connections ----

[[nodiscard]] Client connection_client(uint32_t number);
// Records so many connections in row 0, of the clients 0 to count - 1.
void fill_connections(uint32_t count);

} // namespace captive_portal::bench
