// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/configuration_model.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "cpctl/failure.h"
#include "cpctl/garden_rules.h"
#include "cpctl/interface_names.h"

namespace cpctl
{

namespace
{

template <typename Record> Record load(std::span<const std::byte> bytes)
{
	Record record;
	std::memcpy(&record, bytes.data(), std::min(sizeof(record), bytes.size()));
	return record;
}

template <typename Record> void store(std::span<std::byte> bytes, const Record &record)
{
	std::memcpy(bytes.data(), &record, std::min(sizeof(record), bytes.size()));
}

MacAddress mac_of(const uint8_t (&field)[CP_MAC_SIZE])
{
	MacAddress mac = {};
	std::copy(std::begin(field), std::end(field), mac.begin());
	return mac;
}

void take_first(std::vector<MacAddress> &clients, const MacAddress &mac)
{
	const auto found = std::ranges::find(clients, mac);
	if (found != clients.end()) {
		clients.erase(found);
	}
}

// As the status files have it: what is no printable ASCII, a blank or a backslash as a backslash and three octal digits.
std::string escaped(std::string_view text)
{
	std::string result;
	for (const char character : text) {
		const auto byte = static_cast<unsigned char>(character);
		if (byte > ' ' && byte < 0x7f && byte != '\\') {
			result += character;
			continue;
		}
		result += '\\';
		for (const unsigned shift : {6U, 3U, 0U}) {
			result += static_cast<char>('0' + (byte >> shift & 7));
		}
	}
	return result;
}

std::string pair(const char *key, const std::string &value)
{
	return std::string(" ") + key + "=" + value;
}

std::string pair(const char *key, uint64_t value)
{
	return pair(key, std::to_string(value));
}

} // namespace

long ConfigurationModel::exchange(cp_command command, std::span<std::byte> record)
{
	switch (command) {
	case CAPTIVE_PORTAL_IOCTL_SET:
		return set_portal(record);
	case CAPTIVE_PORTAL_IOCTL_GET:
		get_status(record);
		return 0;
	case WALLED_GARDEN_IOCTL_SET:
		return set_garden(record);
	case WALLED_GARDEN_IOCTL_GET:
		get_garden(record);
		return 0;
	case GATEWAY_IOCTL_SET:
		configuration_.gateway = {load<uint32_t>(record)};
		return 0;
	case GATEWAY_IOCTL_GET:
		store(record, configuration_.gateway.raw);
		return 0;
	case GATEKEEPER_IOCTL_SET:
		return set_clients(record);
	case GATEKEEPER_IOCTL_GET:
		get_clients(record);
		return 0;
	case GATEKEEPER_IOCTL_CHECK:
		check_client(record);
		return 0;
	default:
		return -EPERM;
	}
}

long ConfigurationModel::pass_value(cp_command command, uint32_t value)
{
	if (command != ENV_SET_DEBUG_LEVEL) {
		return -EPERM;
	}
	configuration_.debug_level = value;
	return 0;
}

long ConfigurationModel::set_portal(std::span<const std::byte> bytes)
{
	const auto record = load<cp_cmd>(bytes);
	if (record.cmd == CAPTIVE_PORTAL_MIREL) {
		configuration_.rows[CP_ROW_MIREL].mode = record.enable_value;
		return 0;
	}
	if (record.cmd == DNS_FILTER_ENABLE) {
		configuration_.dns_filter = record.enable_value;
		return 0;
	}
	if (record.iface < 0 || record.iface >= CP_ROWS) {
		return -EPERM;
	}
	RowSettings &settings = configuration_.rows[static_cast<size_t>(record.iface)];
	switch (record.cmd) {
	case CP_WALLED_GARDEN:
		settings.walled_garden = record.enable_value;
		return 0;
	case CAPTIVE_PORTAL:
		settings.mode = record.enable_value;
		return 0;
	case BLOCK_HTTPS:
		settings.block_https = record.enable_value;
		return 0;
	case LOGOUT_IP_NOTIFY:
		settings.logout = text_of(record.value);
		return 0;
	default:
		return -EPERM;
	}
}

void ConfigurationModel::get_status(std::span<std::byte> bytes) const
{
	auto record = load<cp_status>(bytes);
	if (record.cmd != CP_GET_STATUS || record.iface > CP_STATUS_LAST_ROW) {
		return;
	}
	const RowSettings &settings = configuration_.rows[record.iface];
	record.mark = record.iface < CP_WIRELESS_INTERFACES ? cp_interface_mark(record.iface) : 0;
	record.cp_mode = settings.mode;
	record.walled_garden = settings.garden.enable_value;
	record.block_https = settings.block_https;
	record.ap_addr = 0;
	store(bytes, record);
}

long ConfigurationModel::set_garden(std::span<const std::byte> bytes)
{
	const auto record = load<wg_cmd>(bytes);
	if (record.rule_number > WG_RULES_PER_RECORD) {
		return -EINVAL;
	}
	const std::span<const wg_rule> rules(record.rules, static_cast<size_t>(std::max(record.rule_number, 0)));
	if (record.cmd == UPDATE_DEFAULT_RULE) {
		configuration_.default_names.clear();
		for (const wg_rule &rule : rules) {
			configuration_.default_names.emplace_back(text_of(rule.domain_name));
		}
		return 0;
	}
	const int32_t row = record.cmd == UPDATE_MIREL_RULE ? int32_t{CP_ROW_MIREL} : record.iface;
	if (row < 0 || row >= CP_ROWS || record.cmd > UPDATE_MIREL_RULE) {
		return -EPERM;
	}
	Garden &garden = configuration_.rows[static_cast<size_t>(row)].garden;
	garden.enable_value = record.enable_value;
	if (record.cmd != WALLED_GARDEN) {
		garden.rules.assign(rules.begin(), rules.end());
	}
	return 0;
}

void ConfigurationModel::get_garden(std::span<std::byte> bytes) const
{
	auto record = load<wg_cmd>(bytes);
	if (record.cmd == GET_DEFAULT_RULE) {
		for (const std::string &name : configuration_.default_names) {
			if (&name == configuration_.default_names.data()) {
				record.rule_number = 0;
			}
			store_name(record.rules[record.rule_number++].domain_name, name);
		}
	} else if (record.cmd == GET_WALLED_GARDEN_RULE && record.iface >= 0 && record.iface < CP_WIRELESS_INTERFACES) {
		const Garden &garden = configuration_.rows[static_cast<size_t>(record.iface)].garden;
		record.enable_value = garden.enable_value;
		record.rule_number = static_cast<int32_t>(garden.rules.size());
		std::ranges::copy(garden.rules, record.rules);
	}
	store(bytes, record);
}

long ConfigurationModel::set_clients(std::span<const std::byte> bytes)
{
	const auto record = load<gk_cmd>(bytes);
	const std::string_view interface = text_of(record.iface);
	const MacAddress mac = mac_of(record.mac);
	switch (record.cmd) {
	case SET_OVRA_BEHAVIOR:
		configuration_.rows[parse_interface(interface).row].disconnection = {record.behavior, record.status};
		return 0;
	case ADD_MAPPING_OWE_VAP:
		configuration_.owe[parse_owe_interface(text_of(record.owe_iface)).row] = interface;
		return 0;
	case FLUSH_MAPPING_OWE_VAP:
		configuration_.owe.fill({});
		return 0;
	default:
		break;
	}
	if (record.cmd == ADD_MIREL_WHITE_LIST_MAC || record.cmd == DEL_MIREL_WHITE_LIST_MAC) {
		take_first(configuration_.list("mirel-black", {}).clients, mac);
	}
	bool known = record.cmd == FLUSH_CAPTIVE_PORTAL_TABLE;
	for (ConfiguredList &list : configuration_.lists) {
		const ClientTable &table = *list.table;
		const bool flushed =
			table.per_interface && (interface == "all" || interface == list.interface) &&
			(record.cmd == FLUSH_CAPTIVE_PORTAL_TABLE || table.flush == gk_set_command(record.cmd));
		const bool meant = !table.per_interface || interface == list.interface;
		known = known || table.add == record.cmd || table.del == record.cmd ||
			table.flush == gk_set_command(record.cmd);
		if (flushed) {
			list.clients.clear();
		} else if (meant && table.add == record.cmd) {
			list.clients.push_back(mac);
		} else if (meant && table.del == record.cmd) {
			take_first(list.clients, mac);
		}
	}
	return known ? 0 : -EPERM;
}

void ConfigurationModel::get_clients(std::span<std::byte> bytes)
{
	auto record = load<gk_list_reply>(bytes);
	const std::string_view interface = text_of(record.iface);
	if (record.cmd == GET_OVRA_BEHAVIOR) {
		const Disconnection values = configuration_.rows[parse_interface(interface).row].disconnection;
		record.behavior = values.behavior;
		record.status = values.status;
	} else if (record.cmd == GET_MAPPING_OWE_VAP) {
		store_name(record.iface, configuration_.owe[parse_owe_interface(text_of(record.owe_iface)).row]);
	}
	for (const ConfiguredList &list : configuration_.lists) {
		if (list.table->get != record.cmd || (list.table->per_interface && interface != list.interface)) {
			continue;
		}
		record.count = static_cast<uint32_t>(std::min(list.clients.size(), size_t{GK_LIST_SLOTS}));
		for (uint32_t i = 0; i < record.count; i++) {
			std::ranges::copy(list.clients[i], record.entries[i].mac);
		}
	}
	store(bytes, record);
}

void ConfigurationModel::check_client(std::span<std::byte> bytes)
{
	auto record = load<gk_check_reply>(bytes);
	const std::string_view interface = text_of(record.iface);
	record.found = 0;
	for (const ConfiguredList &list : configuration_.lists) {
		if (list.table->check == gk_check_command(record.cmd) && interface == list.interface &&
		    std::ranges::find(list.clients, mac_of(record.mac)) != list.clients.end()) {
			record.found = 1;
		}
	}
	store(bytes, record);
}

std::string ConfigurationModel::status_file(const std::string &name) const
{
	if (name == "status") {
		return status();
	}
	if (name == "clients") {
		return clients();
	}
	if (name == "garden") {
		return garden();
	}
	throw Failure(ExitCode::unavailable, "what a file of commands sets has nothing like " + name);
}

std::string ConfigurationModel::status() const
{
	std::string text = "module format=1" + pair("debug_level", configuration_.debug_level) +
			   pair("dns_filter", configuration_.dns_filter) +
			   pair("gateway", format_ipv4(configuration_.gateway)) + pair("ap_address", "0.0.0.0") +
			   pair("ap_mac", "00:00:00:00:00:00") + pair("cached_addresses", 0);
	for (const ConfiguredList &list : configuration_.lists) {
		if (!list.table->per_interface) {
			text += pair(list.table->name.data(), list.clients.size());
		}
	}
	text += '\n';
	for (uint32_t row = 0; row < CP_ROWS; row++) {
		const RowSettings &settings = configuration_.rows[row];
		const bool wireless = row < CP_WIRELESS_INTERFACES;
		text += "interface" + pair("index", row) + pair("name", interface_of_row(row).name) +
			pair("mark", wireless ? cp_interface_mark(row) : 0) +
			pair("http_port", wireless ? cp_http_port(row) : 0) +
			pair("https_port", wireless ? cp_https_port(row) : 0) + pair("mode", settings.mode) +
			pair("walled_garden", settings.walled_garden) + pair("block_https", settings.block_https) +
			pair("logout", escaped(settings.logout)) + pair("garden", settings.garden.enable_value) +
			pair("rules", settings.garden.rules.size()) + pair("connections", 0);
		for (const ConfiguredList &list : configuration_.lists) {
			if (list.interface == interface_of_row(row).name) {
				text += pair(list.table->name.data(), list.clients.size());
			}
		}
		if (wireless) {
			text += pair("disconnection_behavior", settings.disconnection.behavior) +
				pair("disconnection_status", settings.disconnection.status);
		}
		text += '\n';
	}
	for (uint32_t row = 0; row < CP_OWE_INTERFACES; row++) {
		text += "owe" + pair("name", owe_interface_of_row(row).name) +
			pair("interface", escaped(configuration_.owe[row])) + '\n';
	}
	return text;
}

std::string ConfigurationModel::clients() const
{
	std::string text;
	for (const ConfiguredList &list : configuration_.lists) {
		for (const MacAddress &mac : list.clients) {
			text += "client" + pair("table", std::string(list.table->name)) + pair("mac", format_mac(mac)) +
				(list.interface.empty() ? "" : pair("interface", list.interface)) + '\n';
		}
	}
	return text;
}

std::string ConfigurationModel::garden() const
{
	std::string text;
	for (size_t slot = 0; slot < configuration_.default_names.size(); slot++) {
		text += "default-rule" + pair("slot", slot) +
			pair("name", escaped(configuration_.default_names[slot])) + '\n';
	}
	for (uint32_t row = 0; row < CP_ROWS; row++) {
		for (const wg_rule &rule : configuration_.rows[row].garden.rules) {
			text += "rule" + pair("interface", interface_of_row(row).name) + pair("type", rule.rule_type);
			if (rule.rule_type != WG_RULE_DOMAIN) {
				text += pair("address", format_ipv4({rule.ip_addr})) +
					pair("netmask", format_ipv4({rule.netmask}));
			}
			text += pair("pattern", escaped(text_of(rule.domain_name))) + '\n';
		}
	}
	return text;
}

} // namespace cpctl
