// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/garden_rules.h"

#include <algorithm>
#include <iterator>

#include "cpctl/command_words.h"
#include "cpctl/failure.h"
#include "cpctl/interface_names.h"
#include "cpctl/library.h"

namespace cpctl
{

wg_rule record_of(const captiveportal_rule &rule)
{
	wg_rule record = {.rule_type = rule.type, .ip_addr = rule.address, .netmask = rule.netmask, .domain_name = {}};
	store_name(record.domain_name, text_of(rule.pattern));
	return record;
}

captiveportal_rule library_rule(const wg_rule &record)
{
	captiveportal_rule rule = {
		.type = record.rule_type, .address = record.ip_addr, .netmask = record.netmask, .pattern = {}};
	store_name(rule.pattern, text_of(record.domain_name));
	return rule;
}

wg_rule parse_rule(std::string_view text)
{
	require_whole_word(text);
	captiveportal_rule rule = {};
	judged(captiveportal_parse_rule(library_text(text).c_str(), &rule));
	return record_of(rule);
}

wg_rule parse_default_rule(std::string_view text)
{
	require_whole_word(text);
	captiveportal_rule rule = {};
	judged(captiveportal_parse_default_rule(library_text(text).c_str(), &rule));
	return record_of(rule);
}

std::vector<wg_rule> parse_rules(const std::vector<std::string> &texts, wg_rule (*parse)(std::string_view text))
{
	if (texts.size() > WG_RULES_PER_RECORD) {
		throw usage_failure(std::to_string(texts.size()) + " rules: the module takes " +
				    std::to_string(WG_RULES_PER_RECORD) + " at most");
	}
	std::vector<wg_rule> rules;
	std::ranges::transform(texts, std::back_inserter(rules), parse);
	return rules;
}

bool opens_same(const wg_rule &left, const wg_rule &right)
{
	const bool domain = left.rule_type == WG_RULE_DOMAIN;
	if (domain != (right.rule_type == WG_RULE_DOMAIN)) {
		return false;
	}
	return domain ? text_of(left.domain_name) == text_of(right.domain_name) :
			left.netmask == right.netmask &&
				(left.ip_addr & left.netmask) == (right.ip_addr & right.netmask);
}

bool has_rule(const std::vector<wg_rule> &rules, const wg_rule &rule)
{
	return std::ranges::any_of(rules, [&rule](const wg_rule &one) { return opens_same(one, rule); });
}

std::string format_rule(const wg_rule &rule)
{
	const captiveportal_rule copy = library_rule(rule);
	char text[CAPTIVEPORTAL_RULE_SIZE] = {};
	captiveportal_format_rule(&copy, text);
	return text;
}

} // namespace cpctl
