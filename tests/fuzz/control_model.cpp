// SPDX-License-Identifier: GPL-2.0-only
#include "tests/fuzz/control_model.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "tests/fuzz/reference.h"

namespace captive_portal::test
{

namespace
{

constexpr long refused = -1;
constexpr long no_memory = -12;
constexpr long too_many_rules = -22;

template <typename Record> Record record_of(const std::vector<uint8_t> &bytes)
{
	Record record;
	std::memcpy(&record, bytes.data(), sizeof(record));
	return record;
}

// The text and, where there is room for it, its NUL; the rest of the field stays.
template <size_t size> void put_text(char (&field)[size], const std::string &text)
{
	const size_t length = std::min(text.size() + 1, size);
	std::copy_n(text.c_str(), length, field);
}

// --- command 1 and 2

long set_portal(ModuleState &state, const cp_cmd &record)
{
	if (record.cmd == CAPTIVE_PORTAL_MIREL) {
		state.portals[27].mode = record.enable_value;
		return 0;
	}
	if (record.cmd == DNS_FILTER_ENABLE) {
		state.dns_filter = record.enable_value;
		return 0;
	}
	if (record.iface < 0 || record.iface > 27) {
		return refused;
	}
	ModuleState::Portal &portal = state.portals[static_cast<size_t>(record.iface)];
	switch (record.cmd) {
	case CP_WALLED_GARDEN:
		portal.stored_walled_garden = record.enable_value;
		return 0;
	case CAPTIVE_PORTAL:
		portal.mode = record.enable_value;
		return 0;
	case BLOCK_HTTPS:
		portal.block_https = record.enable_value;
		return 0;
	case LOGOUT_IP_NOTIFY: {
		const std::string text = text_in_field(record.value).substr(0, 15);
		portal.logout_address = {};
		std::copy(text.begin(), text.end(), portal.logout_address.begin());
		return 0;
	}
	default:
		return refused;
	}
}

void get_portal(const ModuleState &state, cp_status &record)
{
	if (record.cmd != CP_GET_STATUS || record.iface > 24) {
		return;
	}
	const ModuleState::Portal &portal = state.portals[record.iface];
	record.mark = portal.mark;
	record.cp_mode = portal.mode;
	record.walled_garden = state.gardens[record.iface].enabled;
	record.block_https = portal.block_https;
	record.ap_addr = state.ap_address;
}

// --- commands 3 and 4

void refresh_cache(ModuleState &state, size_t row)
{
	for (ModuleState::CachedAddress &entry : state.cache) {
		const bool permitted =
			std::any_of(entry.names.begin(), entry.names.end(), [&](const ModuleState::CachedName &name) {
				return reference_permits_name(state, row, name.name);
			});
		const uint32_t bit = uint32_t{1} << row;
		entry.mask = permitted ? entry.mask | bit : entry.mask & ~bit;
	}
}

// `memory_for` rules can be had.
long set_garden(ModuleState &state, const wg_cmd &record, size_t memory_for)
{
	const bool known = record.cmd <= UPDATE_MIREL_RULE;
	const bool looks_at_row = record.cmd == WALLED_GARDEN || record.cmd == UPDATE_RULE;
	if (!known || (looks_at_row && (record.iface < 0 || record.iface > 27))) {
		return refused;
	}
	const size_t row = looks_at_row ? static_cast<size_t>(record.iface) : 27;
	if (record.cmd == WALLED_GARDEN) {
		state.gardens[row].enabled = record.enable_value;
		return 0;
	}
	if (record.rule_number > WG_RULES_PER_RECORD) {
		return too_many_rules;
	}
	const auto count = static_cast<size_t>(std::max(record.rule_number, 0));
	if (record.cmd == UPDATE_DEFAULT_RULE) {
		state.default_rules = {};
		for (size_t i = 0; i < count; ++i) {
			state.default_rules[i] = text_in_field(record.rules[i].domain_name);
		}
		for (size_t any_row = 0; any_row < CP_ROWS; ++any_row) {
			refresh_cache(state, any_row);
		}
		return 0;
	}
	state.gardens[row].enabled = record.enable_value;
	state.gardens[row].rules.clear();
	for (size_t i = 0; i < std::min(count, memory_for); ++i) {
		const wg_rule &rule = record.rules[i];
		state.gardens[row].rules.push_back(
			{rule.rule_type, rule.ip_addr, rule.netmask, text_in_field(rule.domain_name).substr(0, 127)});
	}
	refresh_cache(state, row);
	return 0;
}

void get_garden(const ModuleState &state, wg_cmd &record)
{
	if (record.cmd == GET_DEFAULT_RULE) {
		for (size_t i = 0; i < WG_RULES_PER_RECORD && !state.default_rules[i].empty(); ++i) {
			put_text(record.rules[i].domain_name, state.default_rules[i]);
			record.rule_number = static_cast<int32_t>(i) + 1;
		}
		return;
	}
	if (record.cmd != GET_WALLED_GARDEN_RULE || record.iface < 0 || record.iface > 23) {
		return;
	}
	const ModuleState::Garden &garden = state.gardens[static_cast<size_t>(record.iface)];
	record.enable_value = garden.enabled;
	record.rule_number = static_cast<int32_t>(garden.rules.size());
	for (size_t i = 0; i < garden.rules.size(); ++i) {
		record.rules[i].rule_type = garden.rules[i].type;
		if (garden.rules[i].type == WG_RULE_DOMAIN) {
			put_text(record.rules[i].domain_name, garden.rules[i].domain);
		} else {
			record.rules[i].ip_addr = garden.rules[i].address;
			record.rules[i].netmask = garden.rules[i].netmask;
		}
	}
}

// --- commands 8 to 10

void remove_first(ModuleState::MacAddresses &list, const Mac &mac)
{
	const auto found = std::find(list.begin(), list.end(), mac);
	if (found != list.end()) {
		list.erase(found);
	}
}

struct RowLists {
	ModuleState::Rows ModuleState::*table;
	uint32_t add;
	uint32_t remove;
	std::optional<uint32_t> flush;
	// The node is made before the name is looked at.
	bool allocates_first;
	uint32_t get;
	std::optional<uint32_t> check;
};

constexpr RowLists row_lists[] = {
	{&ModuleState::white_list,
	 ADD_WHITELIST_MAC,
	 DEL_WHITELIST_MAC,
	 {},
	 true,
	 GET_WHITELIST_MAC,
	 CHECK_WHITELIST_MAC},
	{&ModuleState::auth, ADD_AUTH_MAC, DEL_AUTH_MAC, {}, false, GET_AUTH_MAC, {}},
	{&ModuleState::login, ADD_LOGIN_MAC, DEL_LOGIN_MAC, {}, false, GET_LOGIN_MAC, CHECK_LOGIN_MAC},
	{&ModuleState::ga_white_list, ADD_GA_WHITELIST_MAC, DEL_GA_WHITELIST_MAC, FLUSH_GA_WHITELIST_TABLE, true,
	 GET_GA_WHITELIST_MAC, CHECK_GA_WHITELIST_MAC},
	{&ModuleState::mac_auth_fallback, ADD_MAC_AUTH_FALLBACK, DEL_MAC_AUTH_FALLBACK, FLUSH_MAC_AUTH_FALLBACK, true,
	 GET_MAC_AUTH_FALLBACK, CHECK_MAC_AUTH_FALLBACK},
};

// The rows that a flush is about.
std::vector<size_t> flushed_rows(const std::string &name)
{
	std::vector<size_t> rows;
	if (name == "all") {
		for (size_t row = 0; row < CP_WIRELESS_INTERFACES; ++row) {
			rows.push_back(row);
		}
	} else if (const auto row = reference_interface_row(name); row.has_value()) {
		rows.push_back(*row);
	}
	return rows;
}

long set_clients(ModuleState &state, const gk_cmd &record, bool has_memory, size_t &lost)
{
	const std::string name = text_in_field(record.iface);
	const auto row = reference_interface_row(name);
	Mac mac;
	std::copy_n(record.mac, mac.size(), mac.begin());

	for (const RowLists &lists : row_lists) {
		ModuleState::Rows &table = state.*lists.table;
		if (record.cmd == lists.add) {
			if (row.has_value() && has_memory) {
				table[*row].push_back(mac);
			}
			lost += !row.has_value() && has_memory && lists.allocates_first ? 1 : 0;
			return 0;
		}
		if (record.cmd == lists.remove) {
			if (row.has_value()) {
				remove_first(table[*row], mac);
			}
			return 0;
		}
		if (lists.flush == record.cmd) {
			for (const size_t flushed : flushed_rows(name)) {
				table[flushed].clear();
			}
			return 0;
		}
	}
	switch (record.cmd) {
	case FLUSH_CAPTIVE_PORTAL_TABLE:
		for (const size_t flushed : flushed_rows(name)) {
			for (const RowLists &lists : row_lists) {
				(state.*lists.table)[flushed].clear();
			}
		}
		return 0;
	case SET_OVRA_BEHAVIOR:
		if (row.has_value()) {
			state.behaviors[*row] = {record.behavior, record.status};
		}
		return 0;
	case ADD_MAPPING_OWE_VAP:
		if (const auto owe_row = reference_owe_row(text_in_field(record.owe_iface)); owe_row.has_value()) {
			state.owe_mapping[*owe_row] = {name.substr(0, 15),
						       text_in_field(record.owe_iface).substr(0, 15)};
		}
		return 0;
	case FLUSH_MAPPING_OWE_VAP:
		state.owe_mapping = {};
		return 0;
	case ADD_MIREL_BLACK_LIST_MAC:
		if (has_memory) {
			state.mirel_black.push_back(mac);
		}
		return 0;
	case DEL_MIREL_BLACK_LIST_MAC:
		remove_first(state.mirel_black, mac);
		return 0;
	case ADD_MIREL_WHITE_LIST_MAC:
		if (has_memory) {
			remove_first(state.mirel_black, mac);
			state.mirel_white.push_back(mac);
		}
		return 0;
	case DEL_MIREL_WHITE_LIST_MAC:
		remove_first(state.mirel_black, mac);
		remove_first(state.mirel_white, mac);
		return 0;
	default:
		return refused;
	}
}

void put_list(gk_list_reply &record, const ModuleState::MacAddresses &list)
{
	record.count = static_cast<uint32_t>(std::min<size_t>(list.size(), GK_LIST_SLOTS));
	for (size_t i = 0; i < record.count; ++i) {
		std::copy(list[i].begin(), list[i].end(), record.entries[i].mac);
	}
}

void get_clients(const ModuleState &state, gk_list_reply &record)
{
	const auto row = reference_interface_row(text_in_field(record.iface));
	for (const RowLists &lists : row_lists) {
		if (record.cmd == lists.get && row.has_value()) {
			return put_list(record, (state.*lists.table)[*row]);
		}
	}
	switch (record.cmd) {
	case GET_MIREL_BLACK_LIST_MAC:
		return put_list(record, state.mirel_black);
	case GET_MIREL_WHITE_LIST_MAC:
		return put_list(record, state.mirel_white);
	case GET_OVRA_BEHAVIOR:
		if (row.has_value()) {
			record.behavior = state.behaviors[*row][0];
			record.status = state.behaviors[*row][1];
		}
		return;
	case GET_MAPPING_OWE_VAP:
		if (const auto owe_row = reference_owe_row(text_in_field(record.owe_iface)); owe_row.has_value()) {
			put_text(record.iface, state.owe_mapping[*owe_row].iface);
		}
		return;
	default:
		return;
	}
}

void check_clients(const ModuleState &state, gk_check_reply &record)
{
	record.found = 0;
	const auto row = reference_interface_row(text_in_field(record.iface));
	for (const RowLists &lists : row_lists) {
		if (row.has_value() && lists.check == record.cmd) {
			const ModuleState::MacAddresses &list = (state.*lists.table)[*row];
			record.found = std::any_of(list.begin(), list.end(), [&](const Mac &mac) {
				return std::equal(mac.begin(), mac.end(), record.mac);
			});
		}
	}
}

template <typename Record, typename Fill> ControlEffect exchange(const ControlCall &call, Fill fill)
{
	auto record = record_of<Record>(call.record);
	fill(record);
	ControlEffect effect{static_cast<long>(sizeof(record) - call.writable), call.record};
	std::memcpy(effect.record.data(), &record, call.writable);
	return effect;
}

} // namespace

size_t record_size(int32_t command)
{
	switch (command) {
	case CAPTIVE_PORTAL_IOCTL_SET:
		return sizeof(cp_cmd);
	case CAPTIVE_PORTAL_IOCTL_GET:
		return sizeof(cp_status);
	case WALLED_GARDEN_IOCTL_SET:
	case WALLED_GARDEN_IOCTL_GET:
		return sizeof(wg_cmd);
	case GATEWAY_IOCTL_SET:
	case GATEWAY_IOCTL_GET:
		return sizeof(uint32_t);
	case GATEKEEPER_IOCTL_SET:
		return sizeof(gk_cmd);
	case GATEKEEPER_IOCTL_GET:
		return sizeof(gk_list_reply);
	case GATEKEEPER_IOCTL_CHECK:
		return sizeof(gk_check_reply);
	default:
		return 0;
	}
}

ControlEffect apply(ModuleState &state, const ControlCall &call)
{
	const bool gateway = call.command == GATEWAY_IOCTL_SET || call.command == GATEWAY_IOCTL_GET;
	if (record_size(call.command) != 0 && !gateway &&
	    (call.readable < call.record.size() || call.failing_allocation == 1)) {
		return {refused, call.record};
	}
	switch (call.command) {
	case CAPTIVE_PORTAL_IOCTL_SET:
		return {set_portal(state, record_of<cp_cmd>(call.record)), call.record};
	case CAPTIVE_PORTAL_IOCTL_GET:
		return exchange<cp_status>(call, [&](cp_status &record) { get_portal(state, record); });
	case WALLED_GARDEN_IOCTL_SET: {
		if (call.failing_allocation == 2) {
			return {no_memory, call.record};
		}
		// The caller's record and the handler's copy of it come before the rules.
		const size_t rules =
			call.failing_allocation == 0 ? size_t{WG_RULES_PER_RECORD} : call.failing_allocation - 3;
		return {set_garden(state, record_of<wg_cmd>(call.record), rules), call.record};
	}
	case WALLED_GARDEN_IOCTL_GET:
		return exchange<wg_cmd>(call, [&](wg_cmd &record) { get_garden(state, record); });
	case GATEWAY_IOCTL_SET:
		state.gateway = 0;
		std::memcpy(&state.gateway, call.record.data(), call.readable);
		return {0, call.record};
	case GATEWAY_IOCTL_GET:
		return exchange<uint32_t>(call, [&](uint32_t &record) { record = state.gateway; });
	case GATEKEEPER_IOCTL_SET: {
		ControlEffect effect{0, call.record};
		effect.result =
			set_clients(state, record_of<gk_cmd>(call.record), call.failing_allocation != 2, effect.lost);
		return effect;
	}
	case GATEKEEPER_IOCTL_GET:
		return exchange<gk_list_reply>(call, [&](gk_list_reply &record) { get_clients(state, record); });
	case GATEKEEPER_IOCTL_CHECK:
		return exchange<gk_check_reply>(call, [&](gk_check_reply &record) { check_clients(state, record); });
	case ENV_SET_DEBUG_LEVEL:
		return {0, call.record};
	default:
		return {refused, call.record};
	}
}

bool reference_permits_name(const ModuleState &state, size_t row, const std::string &name)
{
	if (name == CP_SOCIAL_LOGIN_HOST) {
		return false;
	}
	const std::vector<ModuleState::Rule> &rules = state.gardens[row].rules;
	return std::any_of(state.default_rules.begin(), state.default_rules.end(),
			   [&](const std::string &rule) { return !rule.empty() && rule == name; }) ||
	       std::any_of(rules.begin(), rules.end(),
			   [&](const ModuleState::Rule &rule) { return reference_pattern_matches(rule.domain, name); });
}

bool reference_permits_address(const ModuleState &state, size_t row, uint32_t address)
{
	const std::vector<ModuleState::Rule> &rules = state.gardens[row].rules;
	return address != 0 && address != social_login.address.raw &&
	       std::any_of(rules.begin(), rules.end(), [&](const ModuleState::Rule &rule) {
		       return rule.type != WG_RULE_DOMAIN && ((address ^ rule.address) & rule.netmask) == 0;
	       });
}

} // namespace captive_portal::test
