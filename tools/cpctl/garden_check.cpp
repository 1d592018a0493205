// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/garden_check.h"

#include "cpctl/failure.h"
#include "cpctl/garden_lint.h"
#include "cpctl/garden_rules.h"
#include "cpctl/json_answer.h"

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

namespace
{

struct CheckedGarden {
	const GardenPlace &place;
	std::vector<wg_rule> rules;
	std::vector<RuleWarning> warnings;
};

Json json_of(const CheckedGarden &garden)
{
	Json warnings = Json::array();
	for (const RuleWarning &warning : garden.warnings) {
		warnings.push_back({{"kind", warning.kind},
				    {"rule", format_rule(garden.rules[warning.rule])},
				    {"other", nullptr},
				    {"names", warning.names},
				    {"text", warning.text}});
		if (warning.other) {
			warnings.back()["other"] = format_rule(garden.rules[*warning.other]);
		}
	}
	return {{"name", garden.place.name}, {"warnings", warnings}};
}

void answer(const Session &session, const std::vector<CheckedGarden> &gardens)
{
	if (session.json != JsonOutput::none) {
		Json json = {{"gardens", Json::array()}};
		for (const CheckedGarden &garden : gardens) {
			json["gardens"].push_back(json_of(garden));
		}
		print_json(session, json);
		return;
	}
	for (const CheckedGarden &garden : gardens) {
		for (const RuleWarning &warning : garden.warnings) {
			session.print(garden.place.name + ": " + warning.text);
		}
	}
}

} // namespace

Action check_gardens(const std::string &name)
{
	const std::vector<GardenPlace> places =
		name.empty() ? garden_places() : std::vector<GardenPlace>{parse_garden_place(name)};
	return [places](const Session &session) {
		const StoredGardens gardens(session);
		std::vector<CheckedGarden> checked;
		size_t warnings = 0;
		for (const GardenPlace &place : places) {
			const std::vector<wg_rule> rules = gardens.garden(place).rules;
			checked.push_back({place, rules, lint(rules)});
			warnings += checked.back().warnings.size();
		}
		answer(session, checked);
		if (warnings != 0) {
			throw refusal(std::to_string(warnings) + (warnings == 1 ? " warning" : " warnings") +
				      ": garden del takes a rule away, garden replace writes all of a garden anew");
		}
	};
}

} // namespace cpctl
