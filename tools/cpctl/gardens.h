// SPDX-License-Identifier: GPL-2.0-only
// The module's lists of walled-garden rules: one for each row, and the default rules.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cpctl/configuration.h"
#include "cpctl/session.h"

namespace cpctl
{

// One of these lists, by its name: a row's (row_names.h), or "default".
struct GardenPlace {
	std::string name;
	// None for the default rules.
	std::optional<uint32_t> row;

	// "the rules of wlan-1-1", "the default rules"
	[[nodiscard]] std::string rules() const;
	// What parses a rule that goes there.
	[[nodiscard]] wg_rule (*parse() const)(std::string_view text);
};

// Anything else is a usage failure, as "default" is to garden_of_row().
[[nodiscard]] GardenPlace parse_garden_place(std::string_view name);
[[nodiscard]] GardenPlace garden_of_row(std::string_view name);
[[nodiscard]] GardenPlace default_garden();
[[nodiscard]] GardenPlace mirel_garden();
// All of them: the default rules, then the rows.
[[nodiscard]] std::vector<GardenPlace> garden_places();

// From the device, which tells the lists of interfaces and the default rules; from the status files where it does not.
[[nodiscard]] Garden stored_garden(const Session &session, const GardenPlace &place);

// All of them from the status files, which have what the device does not tell of a rule.
class StoredGardens
{
public:
	explicit StoredGardens(const Session &session);

	[[nodiscard]] Garden garden(const GardenPlace &place) const;
	[[nodiscard]] uint32_t mode(uint32_t row) const { return configuration_.rows[row].mode; }
	[[nodiscard]] const std::vector<std::string> &default_names() const { return configuration_.default_names; }

private:
	Configuration configuration_;
};

// Replaces switch and rules (the switch means nothing for the default rules), and reads them back: Failure(refused) when
// they are not there. The rules are such as parse_rule() gives.
void store_garden(const Session &session, const GardenPlace &place, const Garden &wanted);

// The rules as they are written.
[[nodiscard]] std::vector<std::string> texts_of(const std::vector<wg_rule> &rules);

} // namespace cpctl
