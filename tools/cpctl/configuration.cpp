// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/configuration.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "cpctl/client_tables.h"
#include "cpctl/failure.h"
#include "cpctl/garden_rules.h"
#include "cpctl/interface_names.h"
#include "cpctl/module_status.h"
#include "cpctl/quoted.h"

namespace cpctl
{

namespace
{

// Higher levels print no more lines, and lower ones no fewer.
constexpr int64_t highest_debug_level = 3;

[[nodiscard]] Failure unknown(const std::string &what)
{
	return {ExitCode::unavailable,
		"the module's status speaks of " + what + ": is this cpctl as new as the module?"};
}

uint32_t number(const StatusLine &line, std::string_view key)
{
	return static_cast<uint32_t>(line.number(key));
}

Ipv4Address address(const StatusLine &line, std::string_view key)
{
	const auto address = scan_ipv4(line.text(key));
	if (!address) {
		throw unknown("the address " + cpctl::quoted(line.text(key)));
	}
	return *address;
}

bool is_taken(const std::string &word, void (*parse)(const std::string &word))
{
	try {
		parse(word);
		return true;
	} catch (const Failure &) {
		return false;
	}
}

bool has_command(const RowSettings &settings)
{
	return settings.logout.empty() ||
	       (settings.logout != "0.0.0.0" &&
		is_taken(settings.logout, [](const std::string &word) { (void)parse_ipv4(word); }));
}

bool has_command(const wg_rule &rule)
{
	try {
		return same_rules({parse_rule(format_rule(rule))}, {rule});
	} catch (const Failure &) {
		return false;
	}
}

bool is_paired_with(const std::string &interface)
{
	return interface.empty() || is_taken(interface, [](const std::string &word) { (void)parse_interface(word); });
}

bool is_default_name(const std::string &name)
{
	return is_taken(name, [](const std::string &word) { (void)parse_default_rule(word); });
}

bool is_station(const MacAddress &mac)
{
	return is_taken(format_mac(mac), [](const std::string &word) { (void)parse_station_mac(word); });
}

// Fills a configuration from the files' lines, and keeps what no command would store.
class Reader
{
public:
	Reader()
	{
		for (uint32_t row = 0; row < CP_ROWS; row++) {
			rows_.emplace(interface_of_row(row).name, row);
		}
		for (ConfiguredList &list : configuration_.lists) {
			lists_.emplace(std::string(list.table->name) + " " + list.interface, &list);
		}
	}

	void read_rows(const ReadStatusFile &read_status_file)
	{
		read_status(read_module_status(read_status_file));
		read_garden(read_status_file("garden"));
	}
	void read_lists(const ReadStatusFile &read_status_file) { read_clients(read_status_file("clients")); }

	ReadConfiguration result() { return {std::move(configuration_), std::move(without_command_)}; }

private:
	void read_status(const ModuleStatus &status)
	{
		const StatusLine &module = status.module;
		const int64_t level = module.number("debug_level");
		configuration_.debug_level = static_cast<uint32_t>(std::clamp<int64_t>(level, 0, highest_debug_level));
		configuration_.dns_filter = number(module, "dns_filter");
		configuration_.gateway = address(module, "gateway");
		for (const StatusLine &line : status.interfaces) {
			read_row(line);
		}
		for (const StatusLine &line : status.companions) {
			read_owe(line);
		}
	}

	void read_row(const StatusLine &line)
	{
		const uint32_t row = find_row(line.text("name"));
		RowSettings &settings = configuration_.rows[row];
		settings.mode = number(line, "mode");
		settings.walled_garden = number(line, "walled_garden");
		settings.block_https = number(line, "block_https");
		settings.garden.enable_value = number(line, "garden");
		settings.logout = line.text("logout");
		if (!has_command(settings)) {
			leave_out("the logout address " + cpctl::quoted(settings.logout) + " of " + line.text("name"));
		}
		if (line.has("disconnection_behavior")) {
			settings.disconnection = {number(line, "disconnection_behavior"),
						  number(line, "disconnection_status")};
		}
	}

	// The lines come in the order of the rows; a companion's name can be odd, and frames are judged without it.
	void read_owe(const StatusLine &line)
	{
		if (companions_ == CP_OWE_INTERFACES) {
			throw unknown("more OWE companions than there are");
		}
		std::string &interface = configuration_.owe[companions_++];
		interface = line.text("interface");
		if (!is_paired_with(interface)) {
			leave_out("the companion " + cpctl::quoted(line.text("name")) + " of " +
				  cpctl::quoted(interface));
		}
	}

	void read_garden(const std::string &text)
	{
		for (const StatusLine &line : parse_status_lines(text)) {
			if (line.keyword() == "default-rule") {
				const std::string &name = line.text("name");
				configuration_.default_names.push_back(name);
				if (!is_default_name(name)) {
					leave_out("the default name " + cpctl::quoted(name));
				}
			} else if (line.keyword() == "rule") {
				read_rule(line);
			}
		}
		if (configuration_.default_names.size() > WG_RULES_PER_RECORD) {
			leave_out("more than " + std::to_string(WG_RULES_PER_RECORD) + " default names");
		}
	}

	void read_rule(const StatusLine &line)
	{
		wg_rule rule = {};
		rule.rule_type = number(line, "type");
		if (rule.rule_type != WG_RULE_DOMAIN) {
			rule.ip_addr = address(line, "address").raw;
			rule.netmask = address(line, "netmask").raw;
		}
		const std::string &pattern = line.text("pattern");
		store_name(rule.domain_name, pattern);
		configuration_.rows[find_row(line.text("interface"))].garden.rules.push_back(rule);
		if (!has_command(rule)) {
			leave_out("the rule " + cpctl::quoted(format_rule(rule)) +
				  (rule.rule_type == WG_RULE_DOMAIN ? "" :
								      " with the pattern " + cpctl::quoted(pattern)) +
				  " of " + line.text("interface"));
		}
	}

	void read_clients(const std::string &text)
	{
		std::map<const ConfiguredList *, std::set<MacAddress>> seen;
		for (const StatusLine &line : parse_status_lines(text)) {
			if (line.keyword() != "client") {
				continue;
			}
			const std::string interface = line.find("interface").value_or("");
			const auto found = lists_.find(line.text("table") + " " + interface);
			if (found == lists_.end()) {
				throw unknown("a list " + cpctl::quoted(line.text("table")) + " of " +
					      cpctl::quoted(interface));
			}
			const MacAddress mac = line.mac("mac");
			if (!seen[found->second].insert(mac).second) {
				continue;
			}
			found->second->clients.push_back(mac);
			if (!is_station(mac)) {
				leave_out("the client " + line.text("mac") + " in " + line.text("table") +
					  (interface.empty() ? "" : " of ") + interface);
			}
		}
	}

	uint32_t find_row(const std::string &name) const
	{
		const auto found = rows_.find(name);
		if (found == rows_.end()) {
			throw unknown("a row " + cpctl::quoted(name));
		}
		return found->second;
	}

	void leave_out(const std::string &what) { without_command_.push_back(what); }

	Configuration configuration_;
	std::vector<std::string> without_command_;
	size_t companions_ = 0;
	std::map<std::string, uint32_t> rows_;
	std::map<std::string, ConfiguredList *> lists_;
};

} // namespace

Configuration::Configuration()
{
	for (uint32_t row = 0; row < CP_WIRELESS_INTERFACES; row++) {
		rows[row].block_https = CP_HTTPS_BLOCKED;
		for (const ClientTable &table : client_tables()) {
			if (table.per_interface) {
				lists.push_back({&table, interface_of_row(row).name, {}});
			}
		}
	}
	for (const ClientTable &table : client_tables()) {
		if (!table.per_interface) {
			lists.push_back({&table, "", {}});
		}
	}
}

const ConfiguredList &Configuration::list(std::string_view table, std::string_view interface) const
{
	for (const ConfiguredList &list : lists) {
		if (list.table->name == table && list.interface == interface) {
			return list;
		}
	}
	throw unknown("a list " + cpctl::quoted(table) + " of " + cpctl::quoted(interface));
}

ConfiguredList &Configuration::list(std::string_view table, std::string_view interface)
{
	return const_cast<ConfiguredList &>(std::as_const(*this).list(table, interface));
}

size_t Configuration::clients() const
{
	size_t clients = 0;
	for (const ConfiguredList &list : lists) {
		clients += list.clients.size();
	}
	return clients;
}

ReadConfiguration read_configuration(const ReadStatusFile &read_status_file)
{
	Reader reader;
	reader.read_rows(read_status_file);
	reader.read_lists(read_status_file);
	return reader.result();
}

Configuration read_gardens(const ReadStatusFile &read_status_file)
{
	Reader reader;
	reader.read_rows(read_status_file);
	return reader.result().configuration;
}

Configuration with_commands(Configuration configuration)
{
	for (RowSettings &settings : configuration.rows) {
		if (!has_command(settings)) {
			settings.logout.clear();
		}
		std::erase_if(settings.garden.rules, [](const wg_rule &rule) { return !has_command(rule); });
	}
	std::vector<std::string> &names = configuration.default_names;
	std::erase_if(names, [](const std::string &name) { return !is_default_name(name); });
	names.resize(std::min(names.size(), size_t{WG_RULES_PER_RECORD}));
	for (std::string &interface : configuration.owe) {
		if (!is_paired_with(interface)) {
			interface.clear();
		}
	}
	for (ConfiguredList &list : configuration.lists) {
		std::erase_if(list.clients, [](const MacAddress &mac) { return !is_station(mac); });
	}
	return configuration;
}

bool same_rules(const std::vector<wg_rule> &left, const std::vector<wg_rule> &right)
{
	return std::ranges::equal(left, right, [](const wg_rule &one, const wg_rule &other) {
		return one.rule_type == other.rule_type && one.ip_addr == other.ip_addr &&
		       one.netmask == other.netmask && text_of(one.domain_name) == text_of(other.domain_name);
	});
}

} // namespace cpctl
