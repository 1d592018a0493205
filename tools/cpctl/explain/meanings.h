// SPDX-License-Identifier: GPL-2.0-only
// What the module's marks and ports stand for, in words.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace cpctl
{

// "clients of wlan-1-1 that are not admitted", and the like.
[[nodiscard]] std::string meaning_of_mark(uint32_t mark);

// "the portal page of wlan-1-1, HTTP", and the like; nothing for a port to which the module redirects nobody.
[[nodiscard]] std::optional<std::string> meaning_of_port(uint16_t port);

// The row whose clients, before login, carry the mark: an interface's, or that of the MIREL portal.
[[nodiscard]] std::optional<uint32_t> row_of_mark(uint32_t mark);

// What the status files call a row, or what belongs to none.
[[nodiscard]] std::string name_of_counted_row(uint32_t row);

} // namespace cpctl
