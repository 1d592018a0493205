// SPDX-License-Identifier: GPL-2.0-only
// Single rules of a list that the module only replaces whole.
#pragma once

#include <string>
#include <vector>

#include "cpctl/gardens.h"

namespace cpctl
{

// Adds the rules behind those that are there; the switch stays as it is. A rule that is there is said to be, and no
// failure. More than the module takes is refused, and nothing changed then.
[[nodiscard]] Action add_rules(const GardenPlace &place, const std::vector<std::string> &rules);

// Takes the rules away, each as often as it is there; the switch stays as it is. One that is not there is refused, and
// nothing changed then.
[[nodiscard]] Action delete_rules(const GardenPlace &place, const std::vector<std::string> &rules);

} // namespace cpctl
