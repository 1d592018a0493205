// SPDX-License-Identifier: GPL-2.0-only
// cpctl interface: what an interface does with clients that are not admitted, and the OWE companions. Each function
// checks its arguments (usage failures) and gives the command.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cpctl/session.h"

namespace cpctl
{

// The settings that set_interface() takes, for the help text.
extern const std::string_view interface_settings_help;

// Changes settings: pairs (the disconnection behaviour: three) of words, applied in their order. All are checked before
// the first is sent.
[[nodiscard]] Action set_interface(const std::string &interface, const std::vector<std::string> &settings);

// One line for the interface, or for each when the name is empty. Needs no device where the status file can be read.
[[nodiscard]] Action show_interface(const std::string &interface);

[[nodiscard]] Action map_owe_interface(const std::string &owe_interface, const std::string &interface);
[[nodiscard]] Action unmap_owe_interface(const std::string &owe_interface);
[[nodiscard]] Action show_owe_interfaces();
[[nodiscard]] Action flush_owe_interfaces();

} // namespace cpctl
