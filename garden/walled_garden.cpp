// SPDX-License-Identifier: GPL-2.0-only
// The rule tables and the matcher.
#include "garden/walled_garden.h"

#include "base/atomic_word.h"
#include "base/debug_level.h"
#include "base/fixed_addresses.h"
#include "base/interface_name.h"
#include "base/interface_numbers.h"
#include "base/lock.h"
#include "captive_portal/control.h"
#include "captive_portal/marks.h"
#include "garden/pattern.h"
#include "garden/rule_index.h"

namespace captive_portal
{

constinit wg_row walled_garden_table[CP_ROWS] = {};
constinit wg_default_rule default_rule[WG_DEFAULT_RULES] = {};
constinit uint32_t rules_version = 0;

namespace
{

// Hosts that are never part of any walled garden.
constexpr Text wgd_exception[] = {text_of_field(CP_SOCIAL_LOGIN_HOST)};

[[nodiscard]] bool is_exception(Text domain)
{
	for (const Text host : wgd_exception) {
		if (domain == host) {
			return true;
		}
	}
	return false;
}

[[nodiscard]] bool matches_default_rule(Text domain)
{
	for (const wg_default_rule &slot : default_rule) {
		const Text name = text_of_field(slot.domain_name);
		if (name.length != 0 && name == domain) {
			return true;
		}
	}
	return false;
}

// A mask of 0 deliberately matches every address.
[[nodiscard]] bool rule_matches_address(const wg_rule_node &rule, Ipv4Address address)
{
	return rule.rule_type != WG_RULE_DOMAIN && (address.raw & rule.netmask) == (rule.ip_addr & rule.netmask);
}

// Deliberately of every rule type: the empty name of an address rule matches the empty domain.
[[nodiscard]] bool rule_matches_domain(const wg_rule_node &rule, Text domain)
{
	return pattern_matches(text_of_field(rule.domain_name), domain);
}

template <typename Matches> [[nodiscard]] bool any_rule(const wg_row &row, Matches matches)
{
	for (const wg_rule_node *rule = row.rule_list; rule != nullptr; rule = rule->next) {
		if (matches(*rule)) {
			return true;
		}
	}
	return false;
}

// Asks rule after rule, with the lines and the memory that each takes.
[[nodiscard]] bool walk_matches_domain(const wg_row &row, Text domain)
{
	if (matches_default_rule(domain)) {
		if (debug_level_reaches(3)) {
			cp_log(CP_LOG_DEBUG, "http_match: match default rule\n");
		}
		return true;
	}
	return any_rule(row, [&](const wg_rule_node &rule) { return rule_matches_domain(rule, domain); });
}

[[nodiscard]] bool index_matches_domain(const wg_row &row, Text domain)
{
	if (is_default_name(domain)) {
		return true;
	}
	MatchedName name(domain);
	return any_rule(row, [&](const wg_rule_node &rule) { return compiled_rule_matches(rule, name); });
}

// The exception host is asked first: it wins over every rule.
[[nodiscard]] bool http_match(GardenQuery type, Ipv4Address address, const Text *domain, uint32_t iface)
{
	const LockGuard guard(Lock::walledgarden);
	const wg_row &row = walled_garden_table[iface];
	switch (type) {
	case GardenQuery::domain:
		if (is_exception(*domain)) {
			return false;
		}
		return match_attempts_are_seen() ? walk_matches_domain(row, *domain) :
						   index_matches_domain(row, *domain);
	case GardenQuery::address:
		if (address == load_word(socialogin_addr)) {
			return false;
		}
		return any_rule(row, [&](const wg_rule_node &rule) { return rule_matches_address(rule, address); });
	}
	return false;
}

void init_row(wg_row &row)
{
	store_word(row.enable_value, 0U);
	// The device can be opened before the table is filled, so a command may have been here.
	free_rule_list(row);
}

} // namespace

void free_rule_list(wg_row &row)
{
	unindex_rules(row);
	while (wg_rule_node *const rule = row.rule_list) {
		row.rule_list = rule->next;
		cp_free(rule);
	}
}

void init_walled_garden_table()
{
	const LockGuard guard(Lock::walledgarden);
	for (uint32_t index = 0; index < CP_WIRELESS_INTERFACES; ++index) {
		wg_row &row = walled_garden_table[index];
		format_interface_name_of_index(row.iface, index);
		store_word(row.mark, cp_interface_mark(index));
		init_row(row);
	}
	init_row(walled_garden_table[CP_ROW_MIREL]);
}

void free_walled_garden_rules()
{
	for (wg_row &row : walled_garden_table) {
		const LockGuard guard(Lock::walledgarden);
		free_rule_list(row);
	}
}

uint32_t is_walled_garden_enable(uint32_t mark)
{
	if (mark == MARK_MIREL_BLACK) {
		return load_word(walled_garden_table[CP_ROW_MIREL].enable_value);
	}
	uint32_t index = interface_of_mark(mark);
	if (index == no_interface) {
		if (mark != 0) {
			return 0;
		}
		// Before start has filled the rows their marks are 0.
		for (index = 0; index < CP_WIRELESS_INTERFACES - 1 && load_word(walled_garden_table[index].mark) != 0;
		     ++index) {
		}
	}
	const wg_row &row = walled_garden_table[index];
	return load_word(row.mark) == mark ? load_word(row.enable_value) : 0;
}

bool match_garden_list(GardenQuery type, Ipv4Address address, const Text *domain, uint32_t iface)
{
	if ((type == GardenQuery::address && address == Ipv4Address{}) ||
	    (type == GardenQuery::domain && domain == nullptr)) {
		if (debug_level_reaches(1)) {
			cp_log(CP_LOG_DEBUG, "Wrong type(%d) and input\n", static_cast<int32_t>(type));
		}
		return false;
	}
	return http_match(type, address, domain, iface);
}

bool match_attempts_are_seen()
{
	return debug_level_reaches(3) || cp_allocations_are_watched() != 0;
}

uint32_t match_garden_rows(Text domain)
{
	MatchingRows rows = {.matching = 0, .undecided = (1U << CP_ROWS) - 1};
	if (!match_attempts_are_seen()) {
		const LockGuard guard(Lock::walledgarden);
		if (is_exception(domain)) {
			return 0;
		}
		MatchedName name(domain);
		rows = rows_that_match(name);
	}
	for (uint32_t row = 0; row < CP_ROWS; ++row) {
		if ((rows.undecided >> row & 1) != 0 && match_garden_list(GardenQuery::domain, {}, &domain, row)) {
			rows.matching |= 1U << row;
		}
	}
	return rows.matching;
}

} // namespace captive_portal
