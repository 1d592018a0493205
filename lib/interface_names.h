// SPDX-License-Identifier: GPL-2.0-only
// Names of wireless interfaces and of the module's further rows.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace libcaptiveportal
{

// The word that flush commands take in the place of an interface.
inline constexpr std::string_view all_interfaces = "all";

// The rows of the names, each in the one spelling that has no second meaning; Failure(INVALID) for anything else.
// 0 to 23.
[[nodiscard]] uint32_t row_of_interface(std::string_view name);
// 0 to 8.
[[nodiscard]] uint32_t row_of_owe_interface(std::string_view name);
// 0 to 27: the wireless interfaces, and "special-mark", "mode-7", "social-login" and "mirel".
[[nodiscard]] uint32_t row_of_any(std::string_view name);

// Of a row below CP_ROWS.
[[nodiscard]] std::string interface_of_row(uint32_t row);
// Of a row below CP_OWE_INTERFACES.
[[nodiscard]] std::string owe_interface_of_row(uint32_t row);

} // namespace libcaptiveportal
