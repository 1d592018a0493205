// SPDX-License-Identifier: GPL-2.0-only
// What the module takes ports of a bridge for, by their names.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace cpctl
{

// Whether the port is wireless to the module: what follows the first letters does not matter.
[[nodiscard]] bool is_wireless_to_module(std::string_view name);

// The interface, or the OWE companion, that the module takes a wireless port for; none where it drops the port's IP frames.
// The module reads two numbers and looks at their combination alone, so a port can be taken for one that has another name.
[[nodiscard]] std::optional<std::string> taken_for(std::string_view name);

} // namespace cpctl
