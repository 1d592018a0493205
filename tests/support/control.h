// SPDX-License-Identifier: GPL-2.0-only
// Drives the module as its daemon does: through the control device, with records in user memory.
#pragma once

#include <array>
#include <cstring>
#include <initializer_list>
#include <string_view>

#include "base/byte_order.h"
#include "captive_portal/captive_portal.h"
#include "platform/host/machine.h"
#include "tests/support/user_buffer.h"

namespace captive_portal::test
{

// insmod: throws unless the start succeeds. Forgets the lines of the start.
void load_module(host::Machine &machine);

// One ioctl with a record: result of the call; what the module wrote back is in `record` afterwards.
template <typename T> [[nodiscard]] long command(host::Machine &machine, int32_t number, T &record)
{
	UserRecord<T> user(machine, record);
	const long result = machine.ioctl(number, user.address());
	record = user.load();
	return result;
}
// The same for a record of which nothing is expected back.
template <typename T> [[nodiscard]] long command(host::Machine &machine, int32_t number, const T &record)
{
	T copy = record;
	return command(machine, number, copy);
}

// Fills a text field of a record; a text of the field's size leaves no room for a NUL.
template <size_t size> void set_text(char (&field)[size], std::string_view text)
{
	std::memset(field, 0, size);
	std::memcpy(field, text.data(), text.size() < size ? text.size() : size);
}

// Shorthand for setting up state. Each throws unless the module answers 0, and forgets the log.
void set_debug_level(host::Machine &machine, int32_t level);
void set_portal(host::Machine &machine, cp_set_command sub_command, int32_t row, uint32_t value);
void set_logout_address(host::Machine &machine, int32_t row, std::string_view dotted_quad);
void set_gateway_address(host::Machine &machine, Ipv4Address address);
// `mac` is ignored by sub-commands without one.
void change_clients(host::Machine &machine, gk_set_command sub_command, std::string_view interface,
		    const std::array<uint8_t, CP_MAC_SIZE> &mac = {});
void set_behavior(host::Machine &machine, std::string_view interface, uint32_t behavior, uint32_t status);
void map_owe_interface(host::Machine &machine, std::string_view owe_interface, std::string_view interface);

[[nodiscard]] wg_rule domain_rule(std::string_view pattern);
[[nodiscard]] wg_rule address_rule(Ipv4Address address, Ipv4Address netmask);
void set_garden(host::Machine &machine, wg_set_command sub_command, int32_t row, uint32_t enable,
		std::initializer_list<wg_rule> rules = {});

} // namespace captive_portal::test
