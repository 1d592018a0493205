// SPDX-License-Identifier: GPL-2.0-only
// Any bytes as the name of an interface: for the scanner, in the control records that name one, and as the device that
// a frame comes from.
#include <cstring>
#include <vector>

#include "base/debug_level.h"
#include "base/interface_name.h"
#include "base/scan_decimal.h"
#include "captive_portal/captive_portal.h"
#include "platform/platform.h"
#include "tests/fuzz/module_state.h"
#include "tests/fuzz/property.h"
#include "tests/fuzz/reference.h"
#include "tests/fuzz/steps.h"
#include "tests/support/cast.h"
#include "tests/support/control.h"
#include "tests/support/frame_builder.h"

namespace captive_portal::test
{

namespace
{

template <typename T> std::optional<T> optional_of(const Field<T> &field)
{
	return field.has_value() ? std::optional(field.value()) : std::nullopt;
}

// Whatever the length: the scanner takes a text, not a field. The text lies in a heap block of exactly its size.
void check_scanner(const std::vector<char> &name)
{
	const Text text{name.data(), name.size()};
	const std::string_view whole(name.data(), name.size());
	const std::string_view view = whole.substr(0, whole.find('\0'));
	std::optional<std::pair<uint32_t, uint32_t>> numbers;
	std::optional<uint32_t> row;
	std::optional<uint32_t> owe_row;
	const uint64_t steps = steps_of([&] {
		if (const Field<InterfaceNumbers> scanned = scan_interface_name(text); scanned.has_value()) {
			numbers = {scanned.value().radio, scanned.value().vap};
		}
		row = optional_of(interface_index_of_name(text));
		owe_row = optional_of(owe_index_of_name(text));
	});
	// Each of the three scans meets a byte once.
	REQUIRE_PROPERTY(steps <= 3 * (40 + 8 * name.size()), "the steps are bounded");
	REQUIRE_PROPERTY(numbers == reference_interface_numbers(view), "the numbers are the reference's");
	REQUIRE_PROPERTY(row == reference_interface_row(view), "the row is the reference's");
	REQUIRE_PROPERTY(owe_row == reference_owe_row(view), "the OWE row is the reference's");

	size_t position = 0;
	const Field<uint32_t> decimal = scan_decimal(text, position);
	const auto expected = reference_decimal(view);
	REQUIRE_PROPERTY(optional_of(decimal) == (expected.has_value() ? std::optional(expected->first) : std::nullopt),
			 "the number is the reference's");
	REQUIRE_PROPERTY(!expected.has_value() || view.substr(position) == expected->second,
			 "the number ends where the reference's does");
}

// What each adding sub-command does with the name: the table that changes, or none. Gives the number of nodes that it
// loses, for want of a row after the node was made.
size_t check_commands(host::Machine &machine, const gk_cmd &named)
{
	const std::string name = text_in_field(named.iface);
	const std::optional<uint32_t> row = reference_interface_row(name);
	struct Case {
		gk_set_command add;
		gk_set_command remove;
		ModuleState::Rows ModuleState::*table;
		bool leaks_when_refused;
	};
	constexpr Case cases[] = {
		{ADD_WHITELIST_MAC, DEL_WHITELIST_MAC, &ModuleState::white_list, true},
		{ADD_AUTH_MAC, DEL_AUTH_MAC, &ModuleState::auth, false},
		{ADD_LOGIN_MAC, DEL_LOGIN_MAC, &ModuleState::login, false},
		{ADD_GA_WHITELIST_MAC, DEL_GA_WHITELIST_MAC, &ModuleState::ga_white_list, true},
		{ADD_MAC_AUTH_FALLBACK, DEL_MAC_AUTH_FALLBACK, &ModuleState::mac_auth_fallback, true},
	};
	size_t lost = 0;
	const ModuleState before = module_state();
	for (const Case &one : cases) {
		ModuleState expected = before;
		if (row.has_value()) {
			(expected.*one.table)[*row].push_back(client_of_wlan_1_1.mac);
		}
		gk_cmd record = named;
		record.cmd = one.add;
		REQUIRE_PROPERTY(command(machine, GATEKEEPER_IOCTL_SET, record) == 0, "a known sub-command gives 0");
		REQUIRE_PROPERTY(module_state() == expected, "the named row alone gains the address");
		lost += !row.has_value() && one.leaks_when_refused ? 1 : 0;
		record.cmd = one.remove;
		REQUIRE_PROPERTY(command(machine, GATEKEEPER_IOCTL_SET, record) == 0, "a known sub-command gives 0");
		REQUIRE_PROPERTY(module_state() == before, "the named row alone loses the address");
	}

	const std::optional<uint32_t> owe_row = reference_owe_row(text_in_field(named.owe_iface));
	ModuleState expected = before;
	if (owe_row.has_value()) {
		expected.owe_mapping[*owe_row] = {name.substr(0, 15), text_in_field(named.owe_iface).substr(0, 15)};
	}
	gk_cmd record = named;
	record.cmd = ADD_MAPPING_OWE_VAP;
	REQUIRE_PROPERTY(command(machine, GATEKEEPER_IOCTL_SET, record) == 0, "a known sub-command gives 0");
	REQUIRE_PROPERTY(module_state() == expected, "the named OWE row alone is mapped");
	return lost;
}

// The verdict about a client in no list: dropped when the device is wireless and selects no row.
void check_ingress(const std::string &device)
{
	const ModuleState state = module_state();
	std::optional<uint32_t> row = reference_interface_row(device);
	if (const auto numbers = reference_interface_numbers(device);
	    numbers.has_value() && numbers->second >= 14 && numbers->second <= 16) {
		const std::optional<uint32_t> owe_row = reference_owe_row(device);
		row = owe_row.has_value() ? reference_interface_row(state.owe_mapping[*owe_row].iface) : std::nullopt;
	}
	const bool wireless = device.starts_with("wlan");
	host::PacketBuffer packet(
		frame().from(second_client_of_wlan_1_1).to(upstream_server).tcp(51000, 80).syn().bytes());
	packet.in_name = device;
	const cp_verdict verdict = host::run_hook(ebt_gate_keeper, packet);
	REQUIRE_PROPERTY(verdict == (wireless && !row.has_value() ? CP_DROP : CP_ACCEPT),
			 "a wireless device without a row is shut");
	REQUIRE_PROPERTY(packet.mark == (wireless && row.has_value() ? cp_interface_mark(*row) : 0),
			 "the mark is the row's");
	REQUIRE_PROPERTY(module_state() == state, "a frame changes no table");
}

void check(const uint8_t *data, size_t size)
{
	check_scanner({data, data + size});

	host::Machine machine;
	machine.threads.fail_next_creation();
	build_access_point(machine);
	load_module(machine);
	for (int32_t row = 0; row < CP_WIRELESS_INTERFACES; ++row) {
		set_portal(machine, CAPTIVE_PORTAL, row, CP_MODE_ON);
	}
	gk_cmd record{};
	const std::array<uint8_t, 6> mac = client_of_wlan_1_1.mac;
	std::copy(mac.begin(), mac.end(), record.mac);
	std::copy_n(data, std::min(size, sizeof(record.iface)), record.iface);
	std::copy_n(data, std::min(size, sizeof(record.owe_iface)), record.owe_iface);
	size_t lost = check_commands(machine, record);
	std::memcpy(record.iface, "wlan-2-3", 9);
	lost += check_commands(machine, record);
	REQUIRE_PROPERTY(machine.lost_allocations().size() == lost, "only nodes made before a refusal are lost");
	// A device's name has 15 characters at most.
	const std::string_view whole(reinterpret_cast<const char *>(data), size);
	check_ingress(std::string(whole.substr(0, std::min<size_t>(whole.find('\0'), 15))));
}

} // namespace

} // namespace captive_portal::test

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	captive_portal::test::check(data, size);
	return 0;
}
