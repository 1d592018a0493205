// SPDX-License-Identifier: GPL-2.0-only
// Formats of kernel log lines, read backwards: what a line that one of them printed has in its conversions.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cpctl
{

// A hardware address in a format. It counts as one conversion.
#define CPCTL_LOG_MAC "%02X:%02X:%02X:%02X:%02X:%02X"

// What stands in the line for each conversion of the format; nothing when the format did not print the line. Texts are as
// short as the rest of the format allows. Knows %s, %d, %u, %x, %p, %pI4 and hardware addresses, with lengths and
// precisions. Blanks and line ends behind either are not looked at.
[[nodiscard]] std::optional<std::vector<std::string>> match_log_format(std::string_view format, std::string_view line);

// How many conversions the format has.
[[nodiscard]] size_t conversions_of(std::string_view format);

} // namespace cpctl
