// SPDX-License-Identifier: GPL-2.0-only
// The commands that make one configuration of another.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cpctl/client_changes.h"
#include "cpctl/configuration.h"

namespace cpctl
{

// The order in which changes are made. Clients come onto lists before any portal is switched and leave them last, so that
// nobody meets a portal that the wanted configuration spares him; a disconnection behaviour is with the portals.
enum class ConfigurationPart {
	access_point,
	gardens,
	companions,
	clients,
	interfaces,
	clients_gone,
};

struct ConfigurationChange {
	ConfigurationPart part;
	// The command that would make what is there; empty when there is nothing, or what the module starts with.
	std::string before;
	// The command for what is wanted. Empty where the change only takes something away.
	std::string after;
	// The command that makes the change, or the client.
	std::vector<std::string> command;
	std::optional<ClientChange> client = {};
};

// In the order in which they are to be made; none when both are the same. The order of clients on a list and of companions
// counts for nothing.
[[nodiscard]] std::vector<ConfigurationChange> changes_between(const Configuration &from, const Configuration &to);

// First and last line of a file that holds a configuration.
inline constexpr std::string_view first_line_of_configuration = "# configuration of the captive portal, format 1";
inline constexpr std::string_view last_line_of_configuration = "# end of configuration";

// The configuration as such a file: its commands, which make it of what the module starts with. Always the same for the
// same configuration.
[[nodiscard]] std::string text_of_configuration(const Configuration &configuration);

} // namespace cpctl
