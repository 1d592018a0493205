// SPDX-License-Identifier: GPL-2.0-only
// What holds for the whole access point: cpctl gateway, dns-filter and debug. Each function checks its arguments (usage
// failures) and gives the command.
#pragma once

#include <string>

#include "cpctl/session.h"

namespace cpctl
{

// The address of the gateway, or "none".
[[nodiscard]] Action set_gateway(const std::string &address);
[[nodiscard]] Action show_gateway();

[[nodiscard]] Action switch_dns_filter(const std::string &on_or_off);
// 0 to 3.
[[nodiscard]] Action set_debug_level(const std::string &level);

} // namespace cpctl
