// SPDX-License-Identifier: GPL-2.0-only
// The module's tables of client MAC addresses, and the sub-commands that reach each of them.
#pragma once

#include <span>
#include <string_view>

#include "lib/client_tables.h"

namespace cpctl
{

using libcaptiveportal::ClientTable;

[[nodiscard]] std::span<const ClientTable> client_tables();

// The table of that name; a usage failure when there is none.
[[nodiscard]] const ClientTable &find_client_table(std::string_view name);

} // namespace cpctl
