// SPDX-License-Identifier: GPL-2.0-only
// cpctl interface show. The status file tells all of it; where it cannot be read, the device tells what it can.
#include <optional>

#include "cpctl/failure.h"
#include "cpctl/interface_commands.h"
#include "cpctl/interface_names.h"
#include "cpctl/json_answer.h"
#include "cpctl/module_status.h"
#include "cpctl/value_names.h"

namespace cpctl
{

namespace
{

// What is not known has no value.
struct ShownInterface {
	Interface interface;
	std::optional<uint32_t> mode;
	std::optional<uint32_t> block_https;
	// Empty for none.
	std::optional<std::string> logout;
	std::optional<std::string> ap_address;
	bool garden = false;
	uint64_t rules = 0;
	Disconnection disconnection;
	// The OWE interfaces whose frames are judged as this one's.
	std::vector<std::string> companions;
};

struct Companion {
	std::string name;
	// Empty for none.
	std::string interface;
};

std::vector<std::string> companions_of(const std::vector<Companion> &companions, const std::string &interface)
{
	std::vector<std::string> names;
	for (const Companion &companion : companions) {
		if (companion.interface == interface) {
			names.push_back(companion.name);
		}
	}
	return names;
}

std::vector<ShownInterface> told_by_status_file(const Session &session, uint32_t first, uint32_t end)
{
	const ModuleStatus status = read_module_status(session.read_status_file);
	std::vector<Companion> companions;
	for (const StatusLine &line : status.companions) {
		companions.push_back({line.text("name"), line.text("interface")});
	}
	std::vector<ShownInterface> interfaces;
	for (uint32_t row = first; row < end; row++) {
		const StatusLine &line = status.row(row);
		const auto number = [&line](std::string_view key) { return static_cast<uint32_t>(line.number(key)); };
		const Interface interface = interface_of_row(row);
		interfaces.push_back({
			.interface = interface,
			.mode = number("mode"),
			.block_https = number("block_https"),
			.logout = line.text("logout"),
			.ap_address = status.module.text("ap_address"),
			.garden = number("garden") != 0,
			.rules = number("rules"),
			.disconnection = {number("disconnection_behavior"), number("disconnection_status")},
			.companions = companions_of(companions, interface.name),
		});
	}
	return interfaces;
}

std::vector<ShownInterface> told_by_device(const Session &session, uint32_t first, uint32_t end)
{
	std::vector<Companion> companions;
	for (uint32_t row = 0; row < CP_OWE_INTERFACES; row++) {
		const std::string name = owe_interface_of_row(row).name;
		companions.push_back({name, session.portal.owe_mapping(name)});
	}
	std::vector<ShownInterface> interfaces;
	for (uint32_t row = first; row < end; row++) {
		const Interface interface = interface_of_row(row);
		const Garden garden = session.portal.garden(row);
		ShownInterface shown = {
			.interface = interface,
			.mode = {},
			.block_https = {},
			.logout = {},
			.ap_address = {},
			.garden = garden.on(),
			.rules = garden.rules.size(),
			.disconnection = session.portal.disconnection(interface.name),
			.companions = companions_of(companions, interface.name),
		};
		if (const auto status = session.portal.status(row)) {
			shown.mode = status->cp_mode;
			shown.block_https = status->block_https;
			shown.ap_address = format_ipv4({status->ap_addr});
		}
		interfaces.push_back(std::move(shown));
	}
	return interfaces;
}

std::string why_unknown(const ShownInterface &shown, const std::string &unreadable)
{
	if (shown.mode) {
		return "logout is unknown, which no command of the control device tells: " + unreadable;
	}
	return "mode, block-https, ap and logout are unknown: " + unreadable +
	       "; and the question for the first three, command 2 of the control device, has the number of the "
	       "kernel's own FIGETBSZ, and this kernel's file layer answered it in the module's place";
}

std::string text_of(std::span<const NamedValue> names, const std::optional<uint32_t> &value)
{
	return value ? name_of(names, *value) : "unknown";
}

void print(const Session &session, const ShownInterface &shown)
{
	session.out << shown.interface.name << ": mode " << text_of(mode_names(), shown.mode) << " block-https "
		    << text_of(block_https_names(), shown.block_https) << " garden " << (shown.garden ? "on" : "off")
		    << " rules " << shown.rules << " disconnection "
		    << name_of(behavior_names(), shown.disconnection.behavior) << ' '
		    << name_of(status_names(), shown.disconnection.status) << " mark "
		    << cp_interface_mark(shown.interface.row) << " ap " << shown.ap_address.value_or("unknown")
		    << " logout " << (shown.logout == "" ? "none" : shown.logout.value_or("unknown")) << " owe";
	for (const std::string &companion : shown.companions) {
		session.out << ' ' << companion;
	}
	session.out << (shown.companions.empty() ? " none\n" : "\n");
}

// Null for what is unknown.
Json json_of(const std::optional<std::string> &text)
{
	return text ? Json(*text) : Json();
}

Json json_of(std::span<const NamedValue> names, const std::optional<uint32_t> &value)
{
	return value ? Json(name_of(names, *value)) : Json();
}

// Keys as in the answer of status.
Json json_of(const ShownInterface &shown)
{
	return {
		{"index", shown.interface.row},
		{"name", shown.interface.name},
		{"mark", cp_interface_mark(shown.interface.row)},
		{"mode", json_of(mode_names(), shown.mode)},
		{"block_https", json_of(block_https_names(), shown.block_https)},
		{"garden", shown.garden},
		{"rules", shown.rules},
		{"disconnection_behavior", name_of(behavior_names(), shown.disconnection.behavior)},
		{"disconnection_status", name_of(status_names(), shown.disconnection.status)},
		{"ap_address", json_of(shown.ap_address)},
		{"logout", json_of(shown.logout)},
		{"owe", shown.companions},
	};
}

} // namespace

Action show_interface(const std::string &name)
{
	const bool every_interface = name.empty();
	const uint32_t first = every_interface ? 0 : parse_interface(name).row;
	const uint32_t end = every_interface ? uint32_t{CP_WIRELESS_INTERFACES} : first + 1;
	return [first, end](const Session &session) {
		std::vector<ShownInterface> interfaces;
		std::string unknown;
		try {
			interfaces = told_by_status_file(session, first, end);
		} catch (const Failure &unreadable) {
			interfaces = told_by_device(session, first, end);
			unknown = why_unknown(interfaces.front(), unreadable.what());
		}
		if (session.json != JsonOutput::none) {
			Json json = {{"interfaces", Json::array()}};
			for (const ShownInterface &shown : interfaces) {
				json["interfaces"].push_back(json_of(shown));
			}
			print_json(session, json);
		} else {
			for (const ShownInterface &shown : interfaces) {
				print(session, shown);
			}
		}
		if (!unknown.empty()) {
			session.note(unknown);
		}
	};
}

} // namespace cpctl
