// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/explain/tables.h"

#include <algorithm>

#include "cpctl/client_tables.h"
#include "cpctl/failure.h"
#include "cpctl/interface_names.h"

namespace cpctl
{

namespace
{

// A module of another make could refuse, the copy is of the same make as the records.
template <typename Record> void give(ModuleCopy &copy, cp_command command, Record record)
{
	if (copy.exchange(command, std::as_writable_bytes(std::span(&record, 1))) != 0) {
		throw Failure(ExitCode::unavailable,
			      "what the module has stored is refused by cpctl's own copy of it: are both of one make?");
	}
}

void give_portal_setting(ModuleCopy &copy, cp_set_command setting, uint32_t row, uint32_t value,
			 const std::string &text = {})
{
	cp_cmd record = {.cmd = setting, .iface = static_cast<int32_t>(row), .enable_value = value, .value = {}};
	store_name(record.value, text);
	give(copy, CAPTIVE_PORTAL_IOCTL_SET, record);
}

void give_rules(ModuleCopy &copy, wg_set_command command, uint32_t row, const Garden &garden)
{
	wg_cmd record = {};
	record.cmd = command;
	record.iface = static_cast<int32_t>(row);
	record.enable_value = garden.enable_value;
	record.rule_number = static_cast<int32_t>(std::min(garden.rules.size(), size_t{WG_RULES_PER_RECORD}));
	std::copy_n(garden.rules.begin(), record.rule_number, record.rules);
	give(copy, WALLED_GARDEN_IOCTL_SET, record);
}

void give_default_names(ModuleCopy &copy, const std::vector<std::string> &names)
{
	Garden garden;
	for (const std::string &name : names) {
		store_name(garden.rules.emplace_back().domain_name, name);
	}
	give_rules(copy, UPDATE_DEFAULT_RULE, 0, garden);
}

void give_row(ModuleCopy &copy, uint32_t row, const RowSettings &settings)
{
	give_portal_setting(copy, row == CP_ROW_MIREL ? CAPTIVE_PORTAL_MIREL : CAPTIVE_PORTAL, row, settings.mode);
	give_portal_setting(copy, CP_WALLED_GARDEN, row, settings.walled_garden);
	give_portal_setting(copy, BLOCK_HTTPS, row, settings.block_https);
	give_portal_setting(copy, LOGOUT_IP_NOTIFY, row, 0, settings.logout);
	give_rules(copy, UPDATE_RULE, row, settings.garden);
	if (row < CP_WIRELESS_INTERFACES) {
		gk_cmd record = {};
		record.cmd = SET_OVRA_BEHAVIOR;
		record.behavior = settings.disconnection.behavior;
		record.status = settings.disconnection.status;
		store_name(record.iface, interface_of_row(row).name);
		give(copy, GATEKEEPER_IOCTL_SET, record);
	}
}

void give_companion(ModuleCopy &copy, uint32_t row, const std::string &interface)
{
	gk_cmd record = {};
	record.cmd = ADD_MAPPING_OWE_VAP;
	store_name(record.iface, interface);
	store_name(record.owe_iface, owe_interface_of_row(row).name);
	give(copy, GATEKEEPER_IOCTL_SET, record);
}

void give_clients(ModuleCopy &copy, const ConfiguredList &list)
{
	gk_cmd record = {};
	record.cmd = list.table->add;
	store_name(record.iface, list.interface);
	for (const MacAddress &client : list.clients) {
		std::ranges::copy(client, record.mac);
		give(copy, GATEKEEPER_IOCTL_SET, record);
	}
}

} // namespace

std::vector<std::string> ModuleTables::tables_with(const MacAddress &client, uint32_t row) const
{
	const std::string interface = row < CP_WIRELESS_INTERFACES ? interface_of_row(row).name : "";
	std::vector<std::string> tables;
	for (const ConfiguredList &list : configuration.lists) {
		if ((list.interface.empty() || list.interface == interface) &&
		    std::ranges::find(list.clients, client) != list.clients.end()) {
			tables.emplace_back(list.table->name);
		}
	}
	return tables;
}

const CachedAddress *ModuleTables::cached_at(const std::string &address) const
{
	const auto found = std::ranges::find(cached, address, &CachedAddress::address);
	return found != cached.end() ? &*found : nullptr;
}

const wg_rule *ModuleTables::rule_with(Ipv4Address address, uint32_t row) const
{
	const std::vector<wg_rule> &rules = configuration.rows[row].garden.rules;
	const auto found = std::ranges::find_if(rules, [address](const wg_rule &rule) {
		return rule.rule_type != WG_RULE_DOMAIN && ((rule.ip_addr ^ address.raw) & rule.netmask) == 0;
	});
	return found != rules.end() ? &*found : nullptr;
}

ModuleTables read_module_tables(const ReadStatusFile &read_status_file)
{
	ModuleTables tables = {.configuration = read_configuration(read_status_file).configuration, .ap_address = {}};
	const std::vector<StatusLine> lines = parse_status_lines(read_status_file("status"));
	const StatusLine &module = lines.front();
	tables.ap_address = parse_ipv4(module.text("ap_address"));
	tables.ap_mac = module.mac("ap_mac");
	tables.cached = read_cached_addresses(read_status_file);
	for (const StatusLine &line : lines) {
		if (line.keyword() == "interface" && line.number("index") >= 0 && line.number("index") < CP_ROWS) {
			tables.connections[static_cast<size_t>(line.number("index"))] = line.number("connections");
		}
	}
	return tables;
}

void fill_module_copy(ModuleCopy &copy, const ModuleTables &tables)
{
	const Configuration &configuration = tables.configuration;
	give_default_names(copy, configuration.default_names);
	for (uint32_t row = 0; row < CP_ROWS; row++) {
		give_row(copy, row, configuration.rows[row]);
	}
	for (uint32_t row = 0; row < CP_OWE_INTERFACES; row++) {
		give_companion(copy, row, configuration.owe[row]);
	}
	// White before black, as the lists are: an addition to the first takes the client off the second.
	for (const ConfiguredList &list : configuration.lists) {
		give_clients(copy, list);
	}
	give_portal_setting(copy, DNS_FILTER_ENABLE, 0, configuration.dns_filter);
	give(copy, GATEWAY_IOCTL_SET, configuration.gateway.raw);
	copy.learn_access_point(tables.ap_address, tables.ap_mac);
	// Behind the rules, whose commands judge what is cached by its names.
	for (const CachedAddress &entry : tables.cached) {
		copy.cache_address(parse_ipv4(entry.address), entry.gardens);
	}
}

} // namespace cpctl
