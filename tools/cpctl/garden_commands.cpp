// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/garden_commands.h"

#include "cpctl/garden_check.h"
#include "cpctl/garden_rules.h"
#include "cpctl/gardens.h"
#include "cpctl/json_answer.h"
#include "cpctl/value_names.h"

namespace cpctl
{

namespace
{

Action replace(const GardenPlace &place, uint32_t enable_value, const std::vector<std::string> &rules)
{
	const Garden wanted = {enable_value, parse_rules(rules, place.parse())};
	return [place, wanted](const Session &session) {
		store_garden(session, place, wanted);
		warn_of_rules(session, place, wanted.rules, 0);
	};
}

// The default rules have no switch.
Json json_of(const GardenPlace &place, const Garden &garden)
{
	Json json = {{"name", place.name}, {"garden", nullptr}, {"rules", texts_of(garden.rules)}};
	if (place.row) {
		json["garden"] = garden.on();
	}
	return json;
}

} // namespace

Action replace_garden(const std::string &row, const std::string &on_or_off, const std::vector<std::string> &rules)
{
	const GardenPlace place = garden_of_row(row);
	return replace(place, parse_value(switch_names(), on_or_off, "switch"), rules);
}

Action replace_default_garden(const std::vector<std::string> &names)
{
	return replace(default_garden(), 0, names);
}

Action replace_mirel_garden(const std::vector<std::string> &words)
{
	const bool has_switch = !words.empty() && (words.front() == "on" || words.front() == "off");
	const std::vector<std::string> rules(words.begin() + (has_switch ? 1 : 0), words.end());
	return replace(mirel_garden(), has_switch ? parse_name(switch_names(), words.front(), "switch") : 1, rules);
}

Action show_garden(const std::string &name)
{
	return [place = parse_garden_place(name)](const Session &session) {
		const Garden garden = stored_garden(session, place);
		warn_of_place(session, place);
		if (session.json != JsonOutput::none) {
			print_json(session, json_of(place, garden));
			return;
		}
		session.out << place.name << ':';
		if (place.row) {
			session.out << " garden " << (garden.on() ? "on" : "off");
		}
		session.out << " rules " << garden.rules.size() << '\n';
		for (const std::string &text : texts_of(garden.rules)) {
			session.out << "    " << text << '\n';
		}
	};
}

} // namespace cpctl
