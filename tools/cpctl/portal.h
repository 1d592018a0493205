// SPDX-License-Identifier: GPL-2.0-only
// The module's commands as functions, over libcaptiveportal, which builds the records and judges their results.
#pragma once

#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "captive_portal/captive_portal.h"
#include "captiveportal.h"
#include "cpctl/addresses.h"
#include "cpctl/client_tables.h"
#include "cpctl/control_device.h"

namespace cpctl
{

// The first addresses of a list; there are more when `complete` is false, but the module does not tell them.
struct ClientList {
	std::vector<MacAddress> clients;
	bool complete = true;
};

enum class Presence {
	listed,
	not_listed,
	// Not among those that a reply holds, and there are more.
	unknown,
};

struct Disconnection {
	uint32_t behavior = 0;
	uint32_t status = 0;
};

// A walled garden: the switch means nothing for the default rules.
struct Garden {
	uint32_t enable_value = 0;
	std::vector<wg_rule> rules;

	bool on() const { return enable_value != 0; }
};

// Every function throws Failure(refused) when the module refuses the record, or Failure(unavailable) when the device is
// not the module's. A store that the module drops silently is for the caller to find by reading back.
class Portal
{
public:
	// The device outlives this object.
	explicit Portal(ControlDevice &device);

	// Portal settings of a row: `sub_command` names the setting; `value` and `text` as it needs them.
	void set(cp_set_command sub_command, int32_t row, uint32_t value, std::string_view text = {});

	// Portal settings of a row, 0..24; nothing when the kernel's file layer answered in the module's place.
	[[nodiscard]] std::optional<cp_status> status(uint32_t row);

	void set_gateway(Ipv4Address address);
	[[nodiscard]] Ipv4Address gateway();
	void set_debug_level(uint32_t level);

	// Gatekeeper commands with an interface name, or "all" where the sub-command takes it, or an empty one.
	void change_clients(gk_set_command sub_command, std::string_view interface, const MacAddress &mac = {});
	void map_owe(std::string_view owe_interface, std::string_view interface);
	void unmap_owe(std::string_view owe_interface);
	void set_disconnection(std::string_view interface, Disconnection disconnection);

	[[nodiscard]] ClientList clients(const ClientTable &table, std::string_view interface);
	[[nodiscard]] Presence presence(const ClientTable &table, const MacAddress &mac, std::string_view interface);
	[[nodiscard]] Disconnection disconnection(std::string_view interface);
	// The interface that an OWE companion is paired with; empty when there is none.
	[[nodiscard]] std::string owe_mapping(std::string_view owe_interface);

	// At most WG_RULES_PER_RECORD rules.
	void set_garden(wg_set_command sub_command, int32_t row, const Garden &garden);
	// Of a wireless interface, 0..23.
	[[nodiscard]] Garden garden(uint32_t row);
	[[nodiscard]] Garden default_rules();

private:
	// What the library calls: the device, and what the device threw meanwhile.
	struct Callee {
		ControlDevice &device;
		std::exception_ptr thrown;

		static long exchange(void *context, uint32_t command, void *record, size_t size) noexcept;
		static long pass_value(void *context, uint32_t command, uint32_t value) noexcept;
	};

	// Throws what a call of the library failed with, and returns any other result.
	int judge(int result);

	std::unique_ptr<Callee> callee_;
	std::unique_ptr<captiveportal, void (*)(captiveportal *)> library_;
};

} // namespace cpctl
