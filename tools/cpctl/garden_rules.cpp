// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/garden_rules.h"

#include <algorithm>
#include <charconv>

#include "cpctl/addresses.h"
#include "cpctl/failure.h"
#include "cpctl/interface_names.h"
#include "cpctl/quoted.h"

namespace cpctl
{

namespace
{

constexpr size_t longest_name = WG_DOMAIN_NAME_SIZE - 1;
constexpr unsigned longest_prefix = 32;
constexpr std::string_view wildcards = "*?";

Failure wrong_address(std::string_view text)
{
	return usage_failure(quoted(text) + " is neither an address (A.B.C.D, A.B.C.D/0 to /32, A.B.C.D/MASK) nor a "
					    "domain pattern");
}

// No name ends in a label of digits only, so digits and dots are an address, or a mistake.
bool meant_as_address(std::string_view text)
{
	return text.find_first_not_of("0123456789.") == std::string_view::npos ||
	       text.find('/') != std::string_view::npos;
}

std::optional<Ipv4Address> scan_mask(std::string_view text)
{
	if (text.find('.') != std::string_view::npos) {
		return scan_ipv4(text);
	}
	unsigned length = 0;
	const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
	if (error != std::errc() || end != text.data() + text.size() || length > longest_prefix) {
		return std::nullopt;
	}
	return mask_of_length(length);
}

wg_rule parse_address_rule(std::string_view text)
{
	const size_t slash = text.find('/');
	const auto address = scan_ipv4(text.substr(0, slash));
	const auto mask =
		slash == std::string_view::npos ? mask_of_length(longest_prefix) : scan_mask(text.substr(slash + 1));
	if (!address || !mask) {
		throw wrong_address(text);
	}
	return {.rule_type = WG_RULE_ADDRESS, .ip_addr = address->raw, .netmask = mask->raw, .domain_name = {}};
}

wg_rule parse_domain_rule(std::string_view text)
{
	if (text.size() > longest_name) {
		throw usage_failure(quoted(text) + " has " + std::to_string(text.size()) +
				    " characters: the module keeps " + std::to_string(longest_name));
	}
	const bool graphic =
		std::ranges::all_of(text, [](char character) { return character > ' ' && character < '\x7f'; });
	if (!graphic) {
		throw usage_failure(quoted(text) + " has a sign that no domain name has: write names of other "
						   "scripts in their ASCII form (xn--...)");
	}
	if (text.ends_with('.')) {
		throw usage_failure(quoted(text) + " would match nothing: leave the last dot out");
	}
	wg_rule rule = {};
	rule.rule_type = WG_RULE_DOMAIN;
	store_name(rule.domain_name, text);
	return rule;
}

} // namespace

wg_rule parse_rule(std::string_view text)
{
	if (text.empty()) {
		throw usage_failure("an empty rule: leave it out");
	}
	return meant_as_address(text) ? parse_address_rule(text) : parse_domain_rule(text);
}

wg_rule parse_default_rule(std::string_view text)
{
	if (text.find_first_of(wildcards) != std::string_view::npos) {
		throw usage_failure(quoted(text) + " has a wildcard: default rules are exact names; patterns go to the "
						   "rules of an interface");
	}
	const wg_rule rule = parse_rule(text);
	if (rule.rule_type != WG_RULE_DOMAIN) {
		throw usage_failure(quoted(text) + " is an address: default rules are names; addresses go to the rules "
						   "of an interface");
	}
	return rule;
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

std::string format_rule(const wg_rule &rule)
{
	if (rule.rule_type == WG_RULE_DOMAIN) {
		return std::string(text_of(rule.domain_name));
	}
	const std::string address = format_ipv4({rule.ip_addr});
	const auto length = length_of_mask({rule.netmask});
	if (!length) {
		return address + "/" + format_ipv4({rule.netmask});
	}
	return *length == longest_prefix ? address : address + "/" + std::to_string(*length);
}

} // namespace cpctl
