// SPDX-License-Identifier: GPL-2.0-only
// What cpctl says of rules that may not do what their writer thinks.
#pragma once

#include <string>
#include <vector>

#include "cpctl/gardens.h"

namespace cpctl
{

// Says on the error output what is to be known of rules that were stored: of those from the index `first` on, and of what
// these are to the others.
void warn_of_rules(const Session &session, const GardenPlace &place, const std::vector<wg_rule> &rules, size_t first);

// Says on the error output when other rules hold in the place of an interface's own.
void warn_of_place(const Session &session, const GardenPlace &place);

// cpctl garden check: tells the warnings of one list, or of all when the name is empty. Refused when there are any.
[[nodiscard]] Action check_gardens(const std::string &name);

} // namespace cpctl
