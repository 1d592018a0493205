// SPDX-License-Identifier: GPL-2.0-only
// Names of all rows of the module's tables: the wireless interfaces, and the four rows that have none.
#pragma once

#include <string_view>

#include "cpctl/interface_names.h"

namespace cpctl
{

// The row of a name that interface_of_row() gives: an interface's, or special-mark, mode-7, social-login, mirel. Anything
// else is a usage failure.
[[nodiscard]] Interface parse_row(std::string_view name);

} // namespace cpctl
