// SPDX-License-Identifier: GPL-2.0-only
// Bytes and texts as protocol.md writes them.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace captive_portal::test
{

// A step that the protocol does not know: whoever sent it is wrong, not the module. Throws std::runtime_error.
[[noreturn]] void refuse(const std::string &why);

// From and to lower-case hexadecimal text.
[[nodiscard]] std::vector<uint8_t> bytes_of(const std::string &digits);
[[nodiscard]] std::string digits_of(std::span<const uint8_t> bytes);

// A log line with "LINE" for the source line of a proc handler and "PTR" for addresses of memory, which differ from build
// to build, and each byte as the character of its number.
[[nodiscard]] std::string portable_line(const std::string &line);

} // namespace captive_portal::test
