// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/interface_commands.h"

#include <array>

#include "cpctl/failure.h"
#include "cpctl/interface_names.h"
#include "cpctl/json_answer.h"
#include "cpctl/quoted.h"
#include "cpctl/read_back.h"
#include "cpctl/row_names.h"
#include "cpctl/value_names.h"

namespace cpctl
{

const std::string_view interface_settings_help =
	"SETTINGS, one or more of:\n"
	"  mode off|on|internet-passes|drop-tcp|NUMBER   the portal\n"
	"  block-https pass|block|redirect|NUMBER        HTTPS of clients that are not logged in\n"
	"  logout ADDRESS|none                           the address whose visit logs a client out\n"
	"  garden on|off|NUMBER                          the walled garden; its rules stay\n"
	"  cp-walled-garden on|off|NUMBER                kept for the portal's daemon, without effect\n"
	"  disconnection drop-all|pass-all|pass-dhcp|NUMBER connected|disconnected|NUMBER\n"
	"                                                what passes while the uplink is away, and whether it is\n"
	"Of the rows without an interface mirel has mode, garden and cp-walled-garden; special-mark, mode-7 and\n"
	"social-login have cp-walled-garden.";

namespace
{

using Words = std::span<const std::string>;

// A setting: the words that follow its name, and the function that checks them and gives the command.
struct Setting {
	std::string_view name;
	size_t words;
	Action (*make)(const Interface &interface, Words words);
};

[[nodiscard]] std::string setting_of(const Interface &interface, std::string_view setting)
{
	return interface.name + ": " + std::string(setting);
}

// Command 2 tells some settings of some rows, where the kernel lets it through to the module.
DeviceTellsStored command_2_tells(const Session &session, uint32_t row, uint32_t cp_status::*member, uint32_t value)
{
	if (member == nullptr || row > CP_STATUS_LAST_ROW) {
		return {};
	}
	return [&session, row, member, value]() -> std::optional<bool> {
		const auto status = session.portal.status(row);
		return status ? std::optional((*status).*member == value) : std::nullopt;
	};
}

// `key` is the setting's in the status file, `member` in the answer to command 2, if that has it.
Action set_number(const Interface &interface, std::string_view setting, cp_set_command sub_command, const char *key,
		  uint32_t cp_status::*member, uint32_t value)
{
	return [=](const Session &session) {
		session.portal.set(sub_command, static_cast<int32_t>(interface.row), value);
		require_stored(
			session, setting_of(interface, setting),
			[&](const ModuleStatus &status) { return status.row(interface.row).number(key) == value; },
			command_2_tells(session, interface.row, member, value));
	};
}

Action set_mode(const Interface &interface, Words words)
{
	return set_number(interface, "mode", CAPTIVE_PORTAL, "mode", &cp_status::cp_mode,
			  parse_value(mode_names(), words[0], "mode"));
}

Action set_block_https(const Interface &interface, Words words)
{
	return set_number(interface, "block-https", BLOCK_HTTPS, "block_https", &cp_status::block_https,
			  parse_value(block_https_names(), words[0], "value of block-https"));
}

Action set_logout(const Interface &interface, Words words)
{
	const std::string address = words[0] == "none" ? "" : format_ipv4(parse_ipv4(words[0]));
	if (address == "0.0.0.0") {
		throw usage_failure("0.0.0.0 is no logout address: to have none, write none");
	}
	return [=](const Session &session) {
		session.portal.set(LOGOUT_IP_NOTIFY, static_cast<int32_t>(interface.row), 0, address);
		require_stored(session, setting_of(interface, "logout"), [&](const ModuleStatus &status) {
			return status.row(interface.row).text("logout") == address;
		});
	};
}

Action set_garden_switch(const Interface &interface, Words words)
{
	const uint32_t value = parse_value(switch_names(), words[0], "switch");
	return [=](const Session &session) {
		session.portal.set_garden(WALLED_GARDEN, static_cast<int32_t>(interface.row), {value, {}});
		if (interface.row >= CP_WIRELESS_INTERFACES) {
			require_stored(session, setting_of(interface, "garden"), [&](const ModuleStatus &status) {
				return status.row(interface.row).number("garden") == value;
			});
		} else if (session.portal.garden(interface.row).enable_value != value) {
			throw not_stored(setting_of(interface, "garden"));
		}
	};
}

Action set_cp_walled_garden(const Interface &interface, Words words)
{
	return set_number(interface, "cp-walled-garden", CP_WALLED_GARDEN, "walled_garden", nullptr,
			  parse_value(switch_names(), words[0], "value of cp-walled-garden"));
}

Action set_disconnection(const Interface &interface, Words words)
{
	if (interface.row >= CP_WIRELESS_INTERFACES) {
		throw usage_failure(interface.name + " has no disconnection behaviour: only interfaces have one");
	}
	const Disconnection wanted = {parse_value(behavior_names(), words[0], "disconnection behaviour"),
				      parse_value(status_names(), words[1], "disconnection status")};
	return [=](const Session &session) {
		session.portal.set_disconnection(interface.name, wanted);
		const Disconnection stored = session.portal.disconnection(interface.name);
		if (stored.behavior != wanted.behavior || stored.status != wanted.status) {
			throw not_stored(setting_of(interface, "disconnection"));
		}
	};
}

constexpr std::array settings_of_interface = {
	Setting{"mode", 1, set_mode},
	Setting{"block-https", 1, set_block_https},
	Setting{"logout", 1, set_logout},
	Setting{"garden", 1, set_garden_switch},
	Setting{"cp-walled-garden", 1, set_cp_walled_garden},
	Setting{"disconnection", 2, set_disconnection},
};

const Setting &find_setting(const std::string &name)
{
	for (const Setting &setting : settings_of_interface) {
		if (setting.name == name) {
			return setting;
		}
	}
	throw usage_failure(cpctl::quoted(name) +
			    " is no setting of an interface: choose mode, block-https, logout, garden, "
			    "cp-walled-garden or disconnection");
}

} // namespace

Action set_interface(const std::string &name, const std::vector<std::string> &settings)
{
	const Interface interface = parse_row(name);
	std::vector<Action> actions;
	Words rest = settings;
	while (!rest.empty()) {
		const Setting &setting = find_setting(rest.front());
		rest = rest.subspan(1);
		if (rest.size() < setting.words) {
			throw usage_failure("after '" + std::string(setting.name) + "' its value is missing");
		}
		actions.push_back(setting.make(interface, rest.first(setting.words)));
		rest = rest.subspan(setting.words);
	}
	return [actions](const Session &session) {
		for (const Action &action : actions) {
			action(session);
		}
	};
}

Action map_owe_interface(const std::string &owe_name, const std::string &name)
{
	const Interface owe = parse_owe_interface(owe_name);
	const Interface interface = parse_interface(name);
	return [owe, interface](const Session &session) {
		session.portal.map_owe(owe.name, interface.name);
		const std::string stored = session.portal.owe_mapping(owe.name);
		if (stored != interface.name) {
			throw refusal(owe.name + " is paired with " +
				      (stored.empty() ? "nothing" : cpctl::quoted(stored)) +
				      " though the module took the command: see the kernel log (dmesg)");
		}
	};
}

Action unmap_owe_interface(const std::string &owe_name)
{
	const Interface owe = parse_owe_interface(owe_name);
	return [owe](const Session &session) {
		session.portal.unmap_owe(owe.name);
		const std::string stored = session.portal.owe_mapping(owe.name);
		if (!stored.empty()) {
			throw refusal(owe.name + " is still paired with " + cpctl::quoted(stored) +
				      " though the module took the command: see the kernel log (dmesg)");
		}
	};
}

Action show_owe_interfaces()
{
	return [](const Session &session) {
		Json json = {{"owe", Json::array()}};
		for (uint32_t row = 0; row < CP_OWE_INTERFACES; row++) {
			const Interface owe = owe_interface_of_row(row);
			const std::string interface = session.portal.owe_mapping(owe.name);
			if (session.json != JsonOutput::none) {
				json["owe"].push_back({{"name", owe.name}, {"interface", interface}});
			} else if (!interface.empty()) {
				session.out << owe.name << " dev " << interface << '\n';
			}
		}
		if (session.json != JsonOutput::none) {
			print_json(session, json);
		}
	};
}

Action flush_owe_interfaces()
{
	return [](const Session &session) {
		session.portal.change_clients(FLUSH_MAPPING_OWE_VAP, {});
		for (uint32_t row = 0; row < CP_OWE_INTERFACES; row++) {
			const Interface owe = owe_interface_of_row(row);
			if (!session.portal.owe_mapping(owe.name).empty()) {
				throw refusal(owe.name +
					      " is still paired after the flush: see the kernel log (dmesg)");
			}
		}
	};
}

} // namespace cpctl
