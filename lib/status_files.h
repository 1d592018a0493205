// SPDX-License-Identifier: GPL-2.0-only
// The module's status files: lines of a keyword and "key=value" pairs.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "lib/captiveportal.h"

namespace libcaptiveportal
{

// The whole file; throws Failure when it cannot be read. `portal` may be null.
[[nodiscard]] std::string read_status_file(const captiveportal *portal, const std::string &name);

// The next line of the text, which loses it; nothing at the end.
[[nodiscard]] std::optional<std::string_view> take_line(std::string_view &text);

[[nodiscard]] std::string_view keyword_of(std::string_view line);

// The value of a key, its escapes undone; nothing when the line has none, or it is no value.
[[nodiscard]] std::optional<std::string> value_of(std::string_view line, std::string_view key);
[[nodiscard]] std::optional<int64_t> number_of(std::string_view line, std::string_view key);

} // namespace libcaptiveportal
