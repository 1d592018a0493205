// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/configuration_changes.h"

#include <algorithm>
#include <set>

#include "cpctl/command_words.h"
#include "cpctl/garden_rules.h"
#include "cpctl/interface_names.h"
#include "cpctl/value_names.h"

namespace cpctl
{

namespace
{

using Words = std::vector<std::string>;

Words with(Words words, const Words &more)
{
	words.insert(words.end(), more.begin(), more.end());
	return words;
}

// The name of the value when it stands for it alone, or its number.
std::string word_of(std::span<const NamedValue> names, uint32_t value)
{
	std::string name = name_of(names, value);
	for (const NamedValue &entry : names) {
		// The first of equal names is the one that is understood.
		if (entry.name == name) {
			return entry.value == value ? name : std::to_string(value);
		}
	}
	return name;
}

std::string text_of_logout(const std::string &address)
{
	return address.empty() ? "none" : address;
}

Words words_of_gateway(Ipv4Address address)
{
	return {"gateway", "set", address.raw == 0 ? "none" : format_ipv4(address)};
}

// Behind a mark where the command line would take one of them for an option or for the end of the rules.
Words with_rules(const Words &command, const Words &rules)
{
	const bool marked = std::ranges::any_of(
		rules, [](const std::string &rule) { return rule.starts_with('-') || rule == "++"; });
	return with(marked ? with(command, {"--"}) : command, rules);
}

Words words_of_garden(const std::string &row, const Garden &garden)
{
	Words rules;
	for (const wg_rule &rule : garden.rules) {
		rules.push_back(format_rule(rule));
	}
	return with_rules({"garden", "replace", row, word_of(switch_names(), garden.enable_value)}, rules);
}

// A setting of `interface set`, as words of both sides.
struct Setting {
	Words before;
	Words after;
};

std::vector<Setting> settings_of(uint32_t row, const RowSettings &from, const RowSettings &to)
{
	const auto pair = [](const char *name, const std::string &before, const std::string &after) {
		return Setting{{name, before}, {name, after}};
	};
	const auto disconnection = [](Disconnection values) {
		return Words{"disconnection", word_of(behavior_names(), values.behavior),
			     word_of(status_names(), values.status)};
	};
	std::vector<Setting> settings = {
		pair("mode", word_of(mode_names(), from.mode), word_of(mode_names(), to.mode)),
		pair("block-https", word_of(block_https_names(), from.block_https),
		     word_of(block_https_names(), to.block_https)),
		pair("logout", text_of_logout(from.logout), text_of_logout(to.logout)),
		pair("cp-walled-garden", word_of(switch_names(), from.walled_garden),
		     word_of(switch_names(), to.walled_garden)),
	};
	if (row < CP_WIRELESS_INTERFACES) {
		settings.push_back({disconnection(from.disconnection), disconnection(to.disconnection)});
	}
	return settings;
}

class Changes
{
public:
	Changes(const Configuration &from, const Configuration &to) : from_(from), to_(to) {}

	std::vector<ConfigurationChange> all()
	{
		access_point();
		gardens();
		companions();
		for (size_t list = 0; list < to_.lists.size(); list++) {
			if (to_.lists[list].table->per_interface) {
				clients(to_.lists[list], from_.lists[list].clients);
			}
		}
		mirel_clients();
		for (uint32_t row = 0; row < CP_ROWS; row++) {
			interface(row);
		}
		changes_.insert(changes_.end(), gone_.begin(), gone_.end());
		return std::move(changes_);
	}

private:
	void change(ConfigurationPart part, const Words &before, const Words &after)
	{
		if (before != after) {
			changes_.push_back({part, join_words(before), join_words(after), after});
		}
	}

	void access_point()
	{
		const auto part = ConfigurationPart::access_point;
		change(part, {"debug", std::to_string(from_.debug_level)}, {"debug", std::to_string(to_.debug_level)});
		change(part, words_of_gateway(from_.gateway), words_of_gateway(to_.gateway));
		change(part, {"dns-filter", word_of(switch_names(), from_.dns_filter)},
		       {"dns-filter", word_of(switch_names(), to_.dns_filter)});
	}

	void gardens()
	{
		const auto part = ConfigurationPart::gardens;
		const Words defaults = {"garden", "default", "replace"};
		change(part, with_rules(defaults, from_.default_names), with_rules(defaults, to_.default_names));
		for (uint32_t row = 0; row < CP_ROWS; row++) {
			const Garden &before = from_.rows[row].garden;
			const Garden &after = to_.rows[row].garden;
			// Rules that no command of cpctl would store can look like others.
			if (before.enable_value != after.enable_value || !same_rules(before.rules, after.rules)) {
				const Words words = words_of_garden(interface_of_row(row).name, after);
				changes_.push_back({part,
						    join_words(words_of_garden(interface_of_row(row).name, before)),
						    join_words(words), words});
			}
		}
	}

	void companions()
	{
		for (uint32_t row = 0; row < CP_OWE_INTERFACES; row++) {
			const std::string name = owe_interface_of_row(row).name;
			const auto words = [&name](const std::string &interface) {
				return interface.empty() ? Words() : Words{"interface", "owe", "map", name, interface};
			};
			const Words before = words(from_.owe[row]);
			const Words after = words(to_.owe[row]);
			if (before != after) {
				changes_.push_back({ConfigurationPart::companions, join_words(before),
						    join_words(after),
						    after.empty() ? Words{"interface", "owe", "unmap", name} : after});
			}
		}
	}

	static ConfigurationChange client_change(ClientChange::Kind kind, const ConfiguredList &list,
						 const MacAddress &mac)
	{
		Words words = {"client", "add", std::string(list.table->name), format_mac(mac)};
		if (!list.interface.empty()) {
			words.push_back(list.interface);
		}
		const ClientChange client = {kind, list.table, list.interface, mac};
		if (kind == ClientChange::Kind::add) {
			return {ConfigurationPart::clients, "", join_words(words), {}, client};
		}
		return {ConfigurationPart::clients_gone, join_words(words), "", {}, client};
	}

	void add(const ConfiguredList &list, const MacAddress &mac)
	{
		changes_.push_back(client_change(ClientChange::Kind::add, list, mac));
	}

	void clients(const ConfiguredList &wanted, const std::vector<MacAddress> &listed)
	{
		const std::set<MacAddress> before(listed.begin(), listed.end());
		const std::set<MacAddress> after(wanted.clients.begin(), wanted.clients.end());
		for (const MacAddress &mac : wanted.clients) {
			if (!before.contains(mac)) {
				add(wanted, mac);
			}
		}
		for (const MacAddress &mac : listed) {
			if (!after.contains(mac)) {
				gone_.push_back(client_change(ClientChange::Kind::del, wanted, mac));
			}
		}
	}

	// Whatever the white list's commands do to the black list is looked at before that one's turn comes.
	void mirel_clients()
	{
		const ConfiguredList &wanted = to_.list("mirel-white", {});
		const std::vector<MacAddress> &white = from_.list("mirel-white", {}).clients;
		std::vector<MacAddress> black = from_.list("mirel-black", {}).clients;
		const std::set<MacAddress> before(white.begin(), white.end());
		const std::set<MacAddress> after(wanted.clients.begin(), wanted.clients.end());
		for (const MacAddress &mac : white) {
			if (!after.contains(mac)) {
				ConfigurationChange change = client_change(ClientChange::Kind::del, wanted, mac);
				change.part = ConfigurationPart::clients;
				changes_.push_back(std::move(change));
				std::erase(black, mac);
			}
		}
		for (const MacAddress &mac : wanted.clients) {
			if (!before.contains(mac)) {
				add(wanted, mac);
				std::erase(black, mac);
			}
		}
		clients(to_.list("mirel-black", {}), black);
	}

	void interface(uint32_t row)
	{
		Words before = {"interface", "set", interface_of_row(row).name};
		Words after = before;
		for (const Setting &setting : settings_of(row, from_.rows[row], to_.rows[row])) {
			if (setting.before != setting.after) {
				before = with(before, setting.before);
				after = with(after, setting.after);
			}
		}
		change(ConfigurationPart::interfaces, before, after);
	}

	const Configuration &from_;
	const Configuration &to_;
	std::vector<ConfigurationChange> changes_;
	std::vector<ConfigurationChange> gone_;
};

std::string_view heading(ConfigurationPart part)
{
	switch (part) {
	case ConfigurationPart::access_point:
		return "# The access point";
	case ConfigurationPart::gardens:
		return "# Destinations that are open before login";
	case ConfigurationPart::companions:
		return "# OWE companions";
	case ConfigurationPart::clients:
	case ConfigurationPart::clients_gone:
		return "# Clients";
	case ConfigurationPart::interfaces:
		return "# Portals, after the clients so that none of them meets one meanwhile";
	}
	return "";
}

} // namespace

std::vector<ConfigurationChange> changes_between(const Configuration &from, const Configuration &to)
{
	return Changes(from, to).all();
}

std::string text_of_configuration(const Configuration &configuration)
{
	std::string text =
		std::string(first_line_of_configuration) +
		"\n# Made by \"cpctl save\", read by \"cpctl restore\": commands of cpctl, one a line. What no line "
		"sets is as the module starts.\n";
	std::optional<ConfigurationPart> part;
	for (const ConfigurationChange &change : changes_between(Configuration(), with_commands(configuration))) {
		if (part != change.part) {
			part = change.part;
			text.append(1, '\n').append(heading(change.part)).append(1, '\n');
		}
		text += change.after + "\n";
	}
	text.append(1, '\n').append(last_line_of_configuration).append(1, '\n');
	return text;
}

} // namespace cpctl
