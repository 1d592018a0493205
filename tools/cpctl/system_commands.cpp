// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/system_commands.h"

#include "cpctl/failure.h"
#include "cpctl/json_answer.h"
#include "cpctl/read_back.h"
#include "cpctl/value_names.h"

namespace cpctl
{

namespace
{

// Levels above it print no more lines.
constexpr uint32_t highest_debug_level = 3;

// An unset gateway; no client's destination has this address.
constexpr Ipv4Address no_address = {0};

} // namespace

Action set_gateway(const std::string &text)
{
	const Ipv4Address address = text == "none" ? no_address : parse_ipv4(text);
	return [address](const Session &session) {
		session.portal.set_gateway(address);
		const Ipv4Address stored = session.portal.gateway();
		if (stored != address) {
			throw refusal("the gateway is " + format_ipv4(stored) + " though the module took the command");
		}
	};
}

Action show_gateway()
{
	return [](const Session &session) {
		const Ipv4Address address = session.portal.gateway();
		if (session.json != JsonOutput::none) {
			print_json(session, {{"gateway", format_ipv4(address)}});
			return;
		}
		session.out << "gateway " << (address == no_address ? "none" : format_ipv4(address)) << '\n';
	};
}

Action switch_dns_filter(const std::string &on_or_off)
{
	const uint32_t value = parse_value(switch_names(), on_or_off, "switch");
	return [value](const Session &session) {
		session.portal.set(DNS_FILTER_ENABLE, 0, value);
		require_stored(session, "dns-filter", [value](const ModuleStatus &status) {
			return status.module.number("dns_filter") == value;
		});
	};
}

Action set_debug_level(const std::string &text)
{
	const uint32_t level = parse_number(text, "debug level");
	if (level > highest_debug_level) {
		throw usage_failure("debug level " + text + ": the highest is " + std::to_string(highest_debug_level));
	}
	return [level](const Session &session) {
		session.portal.set_debug_level(level);
		require_stored(session, "debug", [level](const ModuleStatus &status) {
			return status.module.number("debug_level") == level;
		});
	};
}

} // namespace cpctl
