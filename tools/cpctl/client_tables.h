// SPDX-License-Identifier: GPL-2.0-only
// The module's tables of client MAC addresses, and the sub-commands that reach each of them.
#pragma once

#include <optional>
#include <span>
#include <string_view>

#include "captive_portal/gatekeeper.h"

namespace cpctl
{

struct ClientTable {
	std::string_view name;
	// One list for each wireless interface, or one for all of them.
	bool per_interface;
	gk_set_command add;
	gk_set_command del;
	gk_get_command get;
	// Tests one address, whatever the length of the list. Without it the list is read and searched.
	std::optional<gk_check_command> check;
	// Empties the list of one interface or of all. Without it the addresses are deleted one by one.
	std::optional<gk_set_command> flush;
};

[[nodiscard]] std::span<const ClientTable> client_tables();

// The table of that name; a usage failure when there is none.
[[nodiscard]] const ClientTable &find_client_table(std::string_view name);

} // namespace cpctl
