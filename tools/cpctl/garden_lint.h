// SPDX-License-Identifier: GPL-2.0-only
// Walled-garden rules that may not do what their writer thinks. What a rule opens is asked of the module's own comparison
// (garden/pattern_pieces.h).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "captive_portal/walled_garden.h"

namespace cpctl
{

struct RuleWarning {
	// One of a fixed set of words, for programs:
	// opens-probe   the rule opens hosts that systems ask whether there is a portal: `names`
	// matches-more  it opens what its writer may not mean, as `names`
	// matches-less  it does not open what its writer may mean, as `names`
	// letter-case   it has capital letters, which names in questions do not have
	// never-open    the module keeps shut what it names
	// duplicate     it is there already, as `other`
	// contained     what it opens is open by `other`
	// default-name  what it opens is open by the default names
	// other-rules   other rules hold in the place of the whole list
	// never-asked   no frame is judged by the whole list
	std::string_view kind;
	// Where it stands; none where all rules of a list are meant.
	std::optional<size_t> rule;
	std::optional<size_t> other;
	std::vector<std::string> names;
	// A sentence for people, without the garden's name.
	std::string text;
};

// In the order of the rules. `open_names` are open beside them: the default names, where the rules are a row's.
[[nodiscard]] std::vector<RuleWarning> lint(const std::vector<wg_rule> &rules,
					    const std::vector<std::string> &open_names = {});

// Whether the module opens the name by a rule with this pattern.
[[nodiscard]] bool pattern_opens(std::string_view pattern, std::string_view name);

} // namespace cpctl
