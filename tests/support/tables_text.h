// SPDX-License-Identifier: GPL-2.0-only
// All that the module's tables hold, as a text: to compare what two ways lead to.
#pragma once

#include <string>

#include "platform/host/machine.h"

namespace captive_portal::test
{

// Rows, lists, rules, cache, connections, addresses, and what is registered; and beside each what the indexes over them
// say, so that a table and its index which disagree show. The module must not run meanwhile, and nothing may be ordered
// to fail.
[[nodiscard]] std::string tables_text(const host::Machine &machine);

// Nodes of client lists, and connections: what a stop deliberately leaves.
[[nodiscard]] size_t listed_clients();
[[nodiscard]] size_t listed_connections();

} // namespace captive_portal::test
