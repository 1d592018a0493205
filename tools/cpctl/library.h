// SPDX-License-Identifier: GPL-2.0-only
// What cpctl does with results of libcaptiveportal: its failures become cpctl's.
#pragma once

#include <string>
#include <string_view>

namespace cpctl
{

// Throws the Failure of a negative result, with the library's text; returns any other.
int judged(int result);

// The words as the library takes them. A usage failure when the library would see only the part before a NUL.
[[nodiscard]] std::string library_text(std::string_view text);

} // namespace cpctl
