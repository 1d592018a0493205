// SPDX-License-Identifier: GPL-2.0-only
// Settings of the rows without an interface that the module stores, and that nothing in it reads.
#pragma once

#include <string>
#include <vector>

namespace cpctl
{

// Says of the first of these words of `interface set`, which set_interface() has taken, that it would do nothing, and what to
// do; empty when the module reads all of them. What it keeps for daemons is no such setting.
[[nodiscard]] std::string unread_setting(const std::string &row, const std::vector<std::string> &settings);

} // namespace cpctl
