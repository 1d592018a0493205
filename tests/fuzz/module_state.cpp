// SPDX-License-Identifier: GPL-2.0-only
#include "tests/fuzz/module_state.h"

#include <algorithm>

#include "garden/arecord_table.h"
#include "garden/summary.h"
#include "garden/walled_garden.h"
#include "gatekeeper/client_tables.h"
#include "portal/connections.h"
#include "portal/interface_table.h"
#include "tests/fuzz/property.h"
#include "tests/fuzz/reference.h"

namespace captive_portal::test
{

namespace
{

template <typename Bytes> Mac mac_of(const Bytes &bytes)
{
	Mac mac;
	std::copy_n(bytes, mac.size(), mac.begin());
	return mac;
}

// The list has no other window than the one that replies are filled through.
ModuleState::MacAddresses addresses_of(const MacList &list)
{
	static std::vector<gk_list_slot> slots(16);
	uint32_t count = list.copy_out(slots.data(), static_cast<uint32_t>(slots.size()));
	while (count == slots.size()) {
		slots.resize(slots.size() * 4);
		count = list.copy_out(slots.data(), static_cast<uint32_t>(slots.size()));
	}
	ModuleState::MacAddresses addresses;
	for (uint32_t i = 0; i < count; ++i) {
		addresses.push_back(mac_of(slots[i].mac));
	}
	return addresses;
}

ModuleState::Rows rows_of(const iface_mac_list *table)
{
	ModuleState::Rows rows;
	for (size_t row = 0; row < rows.size(); ++row) {
		rows[row] = addresses_of(table[row].list);
	}
	return rows;
}

ModuleState::Portal portal_of(const cp_row &row)
{
	ModuleState::Portal portal{
		row.mark, row.http_port, row.https_port, row.cp_mode, row.cp_walled_garden, row.block_https, {}, {}};
	std::copy_n(row.logout_ip, sizeof(row.logout_ip), portal.logout_address.begin());
	for (const table_list_entry *entry = row.table_list; entry != nullptr; entry = entry->next) {
		portal.connections.push_back({entry->client_addr.raw, entry->client_port.raw, entry->orig_daddr.raw,
					      entry->orig_dport.raw, mac_of(entry->orig_dmac.bytes)});
	}
	return portal;
}

ModuleState::Garden garden_of(const wg_row &row)
{
	ModuleState::Garden garden{row.mark, row.enable_value, {}};
	for (const wg_rule_node *rule = row.rule_list; rule != nullptr; rule = rule->next) {
		garden.rules.push_back(
			{rule->rule_type, rule->ip_addr, rule->netmask, text_in_field(rule->domain_name)});
	}
	return garden;
}

std::vector<ModuleState::CachedAddress> cache_of()
{
	std::vector<ModuleState::CachedAddress> cache;
	for (uint32_t bucket = 0; bucket < ARECORD_BUCKETS; ++bucket) {
		for (const dns_arecord &entry : dns_aRecord[bucket]) {
			ModuleState::CachedAddress cached{
				bucket, entry.ip, entry.timeout, entry.is_match_wg, entry.is_dump != 0, {}};
			for (const fqdn_node &node : entry.fqdn_list) {
				cached.names.push_back({node.fqdn, node.is_dump != 0});
			}
			REQUIRE_PROPERTY(!cached.names.empty(), "every cached address has a name");
			REQUIRE_PROPERTY(arecord_bucket({static_cast<uint32_t>(entry.ip)}) == bucket &&
						 entry.ip >> 32 == 0,
					 "every address lies in its bucket");
			cache.push_back(std::move(cached));
		}
	}
	return cache;
}

} // namespace

ModuleState module_state()
{
	ModuleState state{};
	state.auth = rows_of(auth_mac_table);
	state.login = rows_of(login_mac_table);
	state.white_list = rows_of(white_list);
	state.ga_white_list = rows_of(ga_white_list);
	state.mac_auth_fallback = rows_of(mac_auth_fallback);
	state.mirel_white = addresses_of(mirel_white_list);
	state.mirel_black = addresses_of(mirel_black_list);
	for (size_t row = 0; row < CP_WIRELESS_INTERFACES; ++row) {
		state.behaviors[row] = {ovra_behavior[row].behavior, ovra_behavior[row].status};
	}
	for (size_t row = 0; row < CP_OWE_INTERFACES; ++row) {
		char name[CP_INTERFACE_NAME_SIZE];
		owe_mapping_table[row].iface.load(name);
		state.owe_mapping[row].iface = text_in_field(name);
		owe_mapping_table[row].owe_iface.load(name);
		state.owe_mapping[row].owe_iface = text_in_field(name);
	}
	for (size_t row = 0; row < CP_ROWS; ++row) {
		state.portals[row] = portal_of(captive_portal_table[row]);
		state.gardens[row] = garden_of(walled_garden_table[row]);
	}
	for (size_t slot = 0; slot < WG_DEFAULT_RULES; ++slot) {
		state.default_rules[slot] = text_in_field(default_rule[slot].domain_name);
	}
	state.cache = cache_of();
	state.cached_addresses = total_ip_count;
	REQUIRE_PROPERTY(static_cast<size_t>(total_ip_count) == state.cache.size(),
			 "the count is that of the addresses");
	state.gateway = ap_gateway.raw;
	state.ap_address = ap_addr.raw;
	state.ap_mac = ap_mac;
	state.dns_filter = dns_filter_activate;
	state.summary_target = text_in_field(summary_target);
	return state;
}

} // namespace captive_portal::test
