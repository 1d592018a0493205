// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/gardens.h"

#include <algorithm>
#include <iterator>

#include "cpctl/failure.h"
#include "cpctl/garden_rules.h"
#include "cpctl/row_names.h"

namespace cpctl
{

namespace
{

constexpr std::string_view name_of_default_rules = "default";

GardenPlace place_of_row(uint32_t row)
{
	return {interface_of_row(row).name, row};
}

// The texts of two rules are equal when the rules are: an address rule has no text that a pattern can have.
void require_rules(const std::string &subject, const Garden &stored, const Garden &wanted)
{
	const std::vector<std::string> stored_texts = texts_of(stored.rules);
	const std::vector<std::string> wanted_texts = texts_of(wanted.rules);
	if (stored_texts.size() != wanted_texts.size()) {
		throw refusal(subject + ": the module kept " + std::to_string(stored_texts.size()) + " of " +
			      std::to_string(wanted_texts.size()) + " rules: is the kernel out of memory? See dmesg");
	}
	for (size_t i = 0; i < wanted_texts.size(); i++) {
		if (stored_texts[i] != wanted_texts[i]) {
			throw refusal(subject + ": the module kept '" + stored_texts[i] + "' in the place of '" +
				      wanted_texts[i] + "'");
		}
	}
}

} // namespace

std::string GardenPlace::rules() const
{
	return row ? "the rules of " + name : "the default rules";
}

wg_rule (*GardenPlace::parse() const)(std::string_view text)
{
	return row ? parse_rule : parse_default_rule;
}

GardenPlace parse_garden_place(std::string_view name)
{
	return name == name_of_default_rules ? default_garden() : garden_of_row(name);
}

GardenPlace garden_of_row(std::string_view name)
{
	return place_of_row(parse_row(name).row);
}

GardenPlace default_garden()
{
	return {std::string(name_of_default_rules), std::nullopt};
}

GardenPlace mirel_garden()
{
	return place_of_row(CP_ROW_MIREL);
}

std::vector<GardenPlace> garden_places()
{
	std::vector<GardenPlace> places = {default_garden()};
	for (uint32_t row = 0; row < CP_ROWS; row++) {
		places.push_back(place_of_row(row));
	}
	return places;
}

Garden stored_garden(const Session &session, const GardenPlace &place)
{
	if (!place.row) {
		return session.portal.default_rules();
	}
	return *place.row < CP_WIRELESS_INTERFACES ? session.portal.garden(*place.row) :
						     StoredGardens(session).garden(place);
}

StoredGardens::StoredGardens(const Session &session) : configuration_(read_gardens(session.read_status_file)) {}

Garden StoredGardens::garden(const GardenPlace &place) const
{
	if (place.row) {
		return configuration_.rows[*place.row].garden;
	}
	Garden names;
	for (const std::string &name : configuration_.default_names) {
		wg_rule rule = {};
		store_name(rule.domain_name, name);
		names.rules.push_back(rule);
	}
	return names;
}

void store_garden(const Session &session, const GardenPlace &place, const Garden &wanted)
{
	if (!place.row) {
		session.portal.set_garden(UPDATE_DEFAULT_RULE, 0, wanted);
		require_rules("default rules", stored_garden(session, place), wanted);
		return;
	}
	session.portal.set_garden(UPDATE_RULE, static_cast<int32_t>(*place.row), wanted);
	const Garden stored = stored_garden(session, place);
	require_rules(place.name, stored, wanted);
	if (stored.enable_value != wanted.enable_value) {
		throw refusal(place.name + ": the garden is not switched as was set");
	}
}

std::vector<std::string> texts_of(const std::vector<wg_rule> &rules)
{
	std::vector<std::string> texts;
	std::ranges::transform(rules, std::back_inserter(texts), format_rule);
	return texts;
}

} // namespace cpctl
