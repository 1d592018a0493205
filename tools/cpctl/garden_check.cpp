// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/garden_check.h"

#include "cpctl/failure.h"
#include "cpctl/garden_lint.h"
#include "cpctl/garden_rules.h"
#include "cpctl/interface_names.h"
#include "cpctl/json_answer.h"

namespace cpctl
{

namespace
{

// What a warning of the list needs of the others. It is not worth a failure: none where the files cannot be read.
[[nodiscard]] std::optional<StoredGardens> gardens_beside(const Session &session, const GardenPlace &place)
{
	if (!place.row) {
		return std::nullopt;
	}
	try {
		return StoredGardens(session);
	} catch (const Failure &) {
		return std::nullopt;
	}
}

// Of a list as a whole: whom the module asks it for.
[[nodiscard]] std::optional<RuleWarning> place_warning(const GardenPlace &place, const StoredGardens &gardens)
{
	const uint32_t row = place.row.value_or(CP_ROW_MIREL);
	if (row < CP_WIRELESS_INTERFACES && gardens.mode(row) == CP_MODE_INTERNET_PASSES) {
		return RuleWarning{.kind = "other-rules",
				   .rule = {},
				   .other = {},
				   .names = {},
				   .text = "the rules of " + interface_of_row(CP_ROW_MODE_7).name +
					   " hold in the place of these while the interface is in mode "
					   "internet-passes"};
	}
	if (row == CP_ROW_SPECIAL_MARK || row == CP_ROW_SOCIAL_LOGIN) {
		return RuleWarning{.kind = "never-asked",
				   .rule = {},
				   .other = {},
				   .names = {},
				   .text = "the module judges no frame by the rules of this row"};
	}
	return std::nullopt;
}

// Of a list that has rules, `gardens` being null where the other lists are not known.
[[nodiscard]] std::vector<RuleWarning> warnings_of(const GardenPlace &place, const std::vector<wg_rule> &rules,
						   const StoredGardens *gardens)
{
	if (gardens == nullptr || !place.row) {
		return lint(rules);
	}
	std::vector<RuleWarning> warnings = lint(rules, gardens->default_names());
	const auto of_all = place_warning(place, *gardens);
	if (of_all && !rules.empty()) {
		warnings.insert(warnings.begin(), *of_all);
	}
	return warnings;
}

void say(const Session &session, const GardenPlace &place, const RuleWarning &warning)
{
	session.note("warning: " + place.name + ": " + warning.text);
}

} // namespace

void warn_of_rules(const Session &session, const GardenPlace &place, const std::vector<wg_rule> &rules, size_t first)
{
	if (!session.warns_of_rules) {
		return;
	}
	const auto gardens = gardens_beside(session, place);
	for (const RuleWarning &warning : warnings_of(place, rules, gardens ? &*gardens : nullptr)) {
		if (warning.rule.value_or(first) >= first || warning.other.value_or(0) >= first) {
			say(session, place, warning);
		}
	}
}

void warn_of_place(const Session &session, const GardenPlace &place)
{
	if (!session.warns_of_rules || place.row.value_or(CP_WIRELESS_INTERFACES) >= CP_WIRELESS_INTERFACES) {
		return;
	}
	const auto gardens = gardens_beside(session, place);
	const auto warning = gardens ? place_warning(place, *gardens) : std::nullopt;
	if (warning) {
		say(session, place, *warning);
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
				    {"rule", nullptr},
				    {"other", nullptr},
				    {"names", warning.names},
				    {"text", warning.text}});
		if (warning.rule) {
			warnings.back()["rule"] = format_rule(garden.rules[*warning.rule]);
		}
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
			checked.push_back({place, rules, warnings_of(place, rules, &gardens)});
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
