// SPDX-License-Identifier: GPL-2.0-only
// cpctl garden, and the garden of cpctl mirel. Each function checks its arguments (usage failures) and gives the command.
#pragma once

#include <string>
#include <vector>

#include "cpctl/session.h"

namespace cpctl
{

// Replaces switch and rules of a row; no rule empties them.
[[nodiscard]] Action replace_garden(const std::string &row, const std::string &on_or_off,
				    const std::vector<std::string> &rules);

// Replaces the default rules, which hold for every interface; no name empties them.
[[nodiscard]] Action replace_default_garden(const std::vector<std::string> &names);

// Replaces the rules of the MIREL portal. The first word may be its switch, "on" or "off"; without one it is on.
[[nodiscard]] Action replace_mirel_garden(const std::vector<std::string> &words);

// Lists the rules of a row, or the default rules ("default").
[[nodiscard]] Action show_garden(const std::string &name);

} // namespace cpctl
