// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/garden_changes.h"

#include <algorithm>

#include "cpctl/failure.h"
#include "cpctl/garden_check.h"
#include "cpctl/garden_rules.h"
#include "cpctl/quoted.h"

namespace cpctl
{

namespace
{

// The rules as other programs cannot change them until the command ends: the first question opens the device.
Garden held_garden(const Session &session, const GardenPlace &place)
{
	(void)session.portal.gateway();
	return StoredGardens(session).garden(place);
}

// A daemon may have stored what cpctl does not, and the whole list has to be sent.
void require_sendable(const GardenPlace &place, const std::vector<wg_rule> &rules)
{
	for (const wg_rule &rule : rules) {
		// The pattern of an address rule goes as it is.
		if (rule.rule_type != WG_RULE_DOMAIN) {
			continue;
		}
		const std::string text = format_rule(rule);
		try {
			(void)place.parse()(text);
		} catch (const Failure &failure) {
			throw refusal("nothing was changed: among " + place.rules() +
				      " is one that cpctl does not store (" + failure.what() + "): replace them all");
		}
	}
}

void store(const Session &session, const GardenPlace &place, const Garden &wanted)
{
	require_sendable(place, wanted.rules);
	store_garden(session, place, wanted);
}

} // namespace

Action add_rules(const GardenPlace &place, const std::vector<std::string> &texts)
{
	const std::vector<wg_rule> rules = parse_rules(texts, place.parse());
	return [place, rules](const Session &session) {
		Garden wanted = held_garden(session, place);
		const size_t before = wanted.rules.size();
		for (const wg_rule &rule : rules) {
			if (has_rule(wanted.rules, rule)) {
				session.note(quoted(format_rule(rule)) + " is among " + place.rules() + " already");
			} else {
				wanted.rules.push_back(rule);
			}
		}
		if (wanted.rules.size() == before) {
			return;
		}
		if (wanted.rules.size() > WG_RULES_PER_RECORD) {
			throw refusal(place.rules() + " are " + std::to_string(before) + ", and would be " +
				      std::to_string(wanted.rules.size()) + ": the module takes " +
				      std::to_string(WG_RULES_PER_RECORD) + " at most; nothing was changed");
		}
		store(session, place, wanted);
		warn_of_rules(session, place, wanted.rules, before);
	};
}

Action delete_rules(const GardenPlace &place, const std::vector<std::string> &texts)
{
	const std::vector<wg_rule> rules = parse_rules(texts, place.parse());
	return [place, rules](const Session &session) {
		Garden wanted = held_garden(session, place);
		for (const wg_rule &rule : rules) {
			if (!has_rule(wanted.rules, rule)) {
				throw refusal(quoted(format_rule(rule)) + " is not among " + place.rules() +
					      ": nothing was changed");
			}
		}
		std::erase_if(wanted.rules, [&rules](const wg_rule &rule) { return has_rule(rules, rule); });
		store(session, place, wanted);
	};
}

} // namespace cpctl
