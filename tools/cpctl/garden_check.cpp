// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/garden_check.h"

#include "cpctl/failure.h"
#include "cpctl/garden_lint.h"

namespace cpctl
{

void warn_of_rules(const Session &session, const GardenPlace &place, const std::vector<wg_rule> &rules, size_t first)
{
	if (!session.warns_of_rules) {
		return;
	}
	for (const RuleWarning &warning : lint(rules)) {
		if (warning.rule >= first || warning.other.value_or(0) >= first) {
			session.note("warning: " + place.name + ": " + warning.text);
		}
	}
}

Action check_gardens(const std::string &name)
{
	const std::vector<GardenPlace> places =
		name.empty() ? garden_places() : std::vector<GardenPlace>{parse_garden_place(name)};
	return [places](const Session &session) {
		const StoredGardens gardens(session);
		size_t warnings = 0;
		for (const GardenPlace &place : places) {
			for (const RuleWarning &warning : lint(gardens.garden(place).rules)) {
				session.print(place.name + ": " + warning.text);
				++warnings;
			}
		}
		if (warnings != 0) {
			throw refusal(std::to_string(warnings) + (warnings == 1 ? " warning" : " warnings") +
				      ": garden del takes a rule away, garden replace writes all of a garden anew");
		}
	};
}

} // namespace cpctl
