// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/status_commands.h"

#include <iomanip>
#include <map>
#include <sstream>

#include "cpctl/client_tables.h"
#include "cpctl/interface_names.h"
#include "cpctl/json_answer.h"
#include "cpctl/module_status.h"
#include "cpctl/reasons.h"
#include "cpctl/value_names.h"

namespace cpctl
{

namespace
{

// A module that is newer than cpctl may count what cpctl has no sentence for.
std::string_view sentence_of(std::string_view name)
{
	const Reason *const reason = find_reason(name);
	return reason != nullptr ? reason->sentence : "counted by a reason that is newer than this cpctl";
}

std::vector<StatusLine> read_counts(const Session &session)
{
	std::vector<StatusLine> counts;
	for (const StatusLine &line : parse_status_lines(session.read_status_file("counters"))) {
		if (line.keyword() == "count") {
			counts.push_back(line);
		}
	}
	return counts;
}

std::string named(std::span<const NamedValue> names, const StatusLine &line, std::string_view key)
{
	return name_of(names, static_cast<uint32_t>(line.number(key)));
}

std::string address_or_none(const std::string &address)
{
	return address.empty() || address == "0.0.0.0" ? "none" : address;
}

// Names of the tables that are kept for each interface, or of those that are one for all.
std::vector<std::string> tables_kept(bool per_interface)
{
	std::vector<std::string> names;
	for (const ClientTable &table : client_tables()) {
		if (table.per_interface == per_interface) {
			names.emplace_back(table.name);
		}
	}
	return names;
}
std::vector<std::string> interface_tables()
{
	return tables_kept(true);
}
std::vector<std::string> common_tables()
{
	return tables_kept(false);
}

// Whether a row has anything to say beside what every row has after the module's start.
bool is_as_started(const StatusLine &line)
{
	for (const char *const key : {"mode", "garden", "rules", "connections", "walled_garden"}) {
		if (line.number(key) != 0) {
			return false;
		}
	}
	const bool wireless = line.has("disconnection_behavior");
	if (line.number("block_https") != (wireless ? CP_HTTPS_BLOCKED : CP_HTTPS_PASSES) ||
	    !line.text("logout").empty()) {
		return false;
	}
	for (const std::string &key : interface_tables()) {
		if (line.has(key) && line.number(key) != 0) {
			return false;
		}
	}
	return !wireless || (line.number("disconnection_behavior") == 0 && line.number("disconnection_status") == 0);
}

// ---- For people ----------------------------------------------------------------------------------------------------------

void print_interface(std::ostream &out, const StatusLine &line)
{
	out << line.text("name") << ": mode " << named(mode_names(), line, "mode") << " block-https "
	    << named(block_https_names(), line, "block_https") << " garden "
	    << (line.number("garden") != 0 ? "on" : "off") << " rules " << line.number("rules") << " logout "
	    << address_or_none(line.text("logout")) << " connections " << line.number("connections") << '\n';
	std::string clients;
	for (const std::string &table : interface_tables()) {
		if (line.has(table) && line.number(table) != 0) {
			clients += " " + table + " " + line.text(table);
		}
	}
	if (!clients.empty()) {
		out << "    clients" << clients << '\n';
	}
	if (line.has("disconnection_behavior") &&
	    (line.number("disconnection_behavior") != 0 || line.number("disconnection_status") != 0)) {
		out << "    disconnection " << named(behavior_names(), line, "disconnection_behavior") << ' '
		    << named(status_names(), line, "disconnection_status") << '\n';
	}
}

void print_status(std::ostream &out, const ModuleStatus &status)
{
	const StatusLine &module = status.module;
	out << "access point: address " << address_or_none(module.text("ap_address")) << " mac "
	    << module.text("ap_mac") << " gateway " << address_or_none(module.text("gateway")) << '\n'
	    << "module: debug " << module.number("debug_level") << " dns-filter "
	    << (module.number("dns_filter") != 0 ? "on" : "off") << " cached-addresses "
	    << module.number("cached_addresses");
	for (const std::string &table : common_tables()) {
		out << ' ' << table << ' ' << module.number(table);
	}
	out << '\n';
	size_t as_started = 0;
	for (const StatusLine &line : status.interfaces) {
		if (is_as_started(line)) {
			++as_started;
		} else {
			print_interface(out, line);
		}
	}
	for (const StatusLine &line : status.companions) {
		if (!line.text("interface").empty()) {
			out << line.text("name") << ": judged as " << line.text("interface") << '\n';
		}
	}
	if (as_started != 0) {
		out << as_started << (as_started == 1 ? " more row is" : " more rows are")
		    << " as the module started them\n";
	}
}

void print_counts(std::ostream &out, const std::vector<StatusLine> &counts)
{
	std::string interface;
	for (const StatusLine &line : counts) {
		if (line.text("interface") != interface) {
			interface = line.text("interface");
			out << interface << ":\n";
		}
		out << std::setw(14) << line.number("value") << "  " << std::left << std::setw(26)
		    << line.text("reason") << std::right << sentence_of(line.text("reason")) << '\n';
	}
}

// ---- For programs --------------------------------------------------------------------------------------------------------

Json json_of(const StatusLine &line)
{
	Json interface = {
		{"index", line.number("index")},
		{"name", line.text("name")},
		{"mark", line.number("mark")},
		{"http_port", line.number("http_port")},
		{"https_port", line.number("https_port")},
		{"mode", named(mode_names(), line, "mode")},
		{"walled_garden", line.number("walled_garden")},
		{"block_https", named(block_https_names(), line, "block_https")},
		{"logout", line.text("logout")},
		{"garden", line.number("garden") != 0},
		{"rules", line.number("rules")},
		{"connections", line.number("connections")},
	};
	if (line.has("disconnection_behavior")) {
		interface["disconnection_behavior"] = named(behavior_names(), line, "disconnection_behavior");
		interface["disconnection_status"] = named(status_names(), line, "disconnection_status");
		Json clients = Json::object();
		for (const std::string &table : interface_tables()) {
			clients[table] = line.number(table);
		}
		interface["clients"] = clients;
	}
	return interface;
}

Json json_of(const ModuleStatus &status)
{
	const StatusLine &module = status.module;
	Json clients = Json::object();
	for (const std::string &table : common_tables()) {
		clients[table] = module.number(table);
	}
	Json json = {
		{"ap_address", module.text("ap_address")},
		{"ap_mac", module.text("ap_mac")},
		{"gateway", module.text("gateway")},
		{"debug_level", module.number("debug_level")},
		{"dns_filter", module.number("dns_filter") != 0},
		{"cached_addresses", module.number("cached_addresses")},
		{"clients", clients},
		{"interfaces", Json::array()},
		{"owe", Json::array()},
	};
	for (const StatusLine &line : status.interfaces) {
		json["interfaces"].push_back(json_of(line));
	}
	for (const StatusLine &line : status.companions) {
		json["owe"].push_back({{"name", line.text("name")}, {"interface", line.text("interface")}});
	}
	return json;
}

Json json_of(const std::vector<StatusLine> &counts)
{
	Json json = Json::array();
	for (const StatusLine &line : counts) {
		json.push_back({{"interface", line.text("interface")},
				{"reason", line.text("reason")},
				{"value", line.number("value")}});
	}
	return json;
}

// A value between double quotes, as the text format wants it.
std::string label(std::string_view name, const std::string &value)
{
	std::string text = std::string(name) + "=\"";
	for (const char character : value) {
		if (character == '"' || character == '\\') {
			text += '\\';
		}
		text += character;
	}
	return text + "\"";
}

void head(std::ostream &out, std::string_view name, std::string_view help, std::string_view type)
{
	out << "# HELP " << name << ' ' << help << "\n# TYPE " << name << ' ' << type << '\n';
}

} // namespace

Action show_status(bool statistics)
{
	return [statistics](const Session &session) {
		const ModuleStatus status = read_module_status(session.read_status_file);
		const std::vector<StatusLine> counts = statistics ? read_counts(session) : std::vector<StatusLine>();
		if (session.json != JsonOutput::none) {
			Json json = json_of(status);
			if (statistics) {
				json["counters"] = json_of(counts);
			}
			print_json(session, json);
			return;
		}
		// All of it or nothing: a line that is not understood may come late.
		std::ostringstream text;
		print_status(text, status);
		print_counts(text, counts);
		session.out << text.str();
	};
}

Action show_metrics()
{
	return [](const Session &session) {
		const ModuleStatus status = read_module_status(session.read_status_file);
		std::ostringstream out;
		head(out, "captive_portal_events_total", "What became of frames, connections and addresses.",
		     "counter");
		for (const StatusLine &line : read_counts(session)) {
			out << "captive_portal_events_total{" << label("interface", line.text("interface")) << ','
			    << label("reason", line.text("reason")) << "} " << line.number("value") << '\n';
		}
		head(out, "captive_portal_cached_addresses", "Addresses of answers that the cache holds.", "gauge");
		out << "captive_portal_cached_addresses " << status.module.number("cached_addresses") << '\n';
		head(out, "captive_portal_connections", "Redirected connections that are recorded.", "gauge");
		for (const StatusLine &line : status.interfaces) {
			out << "captive_portal_connections{" << label("interface", line.text("name")) << "} "
			    << line.number("connections") << '\n';
		}
		head(out, "captive_portal_clients", "Entries of the client tables.", "gauge");
		for (const StatusLine &line : status.interfaces) {
			for (const std::string &table : interface_tables()) {
				if (line.has(table)) {
					out << "captive_portal_clients{" << label("interface", line.text("name")) << ','
					    << label("table", table) << "} " << line.number(table) << '\n';
				}
			}
		}
		for (const std::string &table : common_tables()) {
			out << "captive_portal_clients{" << label("interface", "all") << ',' << label("table", table)
			    << "} " << status.module.number(table) << '\n';
		}
		session.out << out.str();
	};
}

} // namespace cpctl
