// SPDX-License-Identifier: GPL-2.0-only
#include "lib/garden_rules.h"

#include <algorithm>
#include <charconv>

#include "captive_portal/walled_garden.h"
#include "lib/addresses.h"
#include "lib/failure.h"
#include "lib/interface.h"

namespace libcaptiveportal
{

namespace
{

static_assert(CAPTIVEPORTAL_PATTERN_SIZE == +WG_DOMAIN_NAME_SIZE);
static_assert(CAPTIVEPORTAL_RULES_MOST == +WG_RULES_PER_RECORD);
static_assert(CAPTIVEPORTAL_RULE_DOMAIN == +WG_RULE_DOMAIN && CAPTIVEPORTAL_RULE_ADDRESS == +WG_RULE_ADDRESS);

constexpr size_t longest_name = WG_DOMAIN_NAME_SIZE - 1;
constexpr unsigned longest_prefix = 32;
constexpr std::string_view wildcards = "*?";

Failure wrong_address(std::string_view text)
{
	return invalid(quoted(text) + " is neither an address (A.B.C.D, A.B.C.D/0 to /32, A.B.C.D/MASK) nor a "
				      "domain pattern");
}

// No name ends in a label of digits only, so digits and dots are an address, or a mistake.
bool meant_as_address(std::string_view text)
{
	return text.find_first_not_of("0123456789.") == std::string_view::npos ||
	       text.find('/') != std::string_view::npos;
}

std::optional<uint32_t> scan_mask(std::string_view text)
{
	if (text.find('.') != std::string_view::npos) {
		return scan_address(text);
	}
	unsigned length = 0;
	const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
	if (error != std::errc() || end != text.data() + text.size() || length > longest_prefix) {
		return std::nullopt;
	}
	return mask_of_length(length);
}

captiveportal_rule parse_address_rule(std::string_view text)
{
	const size_t slash = text.find('/');
	const auto address = scan_address(text.substr(0, slash));
	const auto mask =
		slash == std::string_view::npos ? mask_of_length(longest_prefix) : scan_mask(text.substr(slash + 1));
	if (!address || !mask) {
		throw wrong_address(text);
	}
	return {.type = CAPTIVEPORTAL_RULE_ADDRESS, .address = *address, .netmask = *mask, .pattern = {}};
}

captiveportal_rule parse_domain_rule(std::string_view text)
{
	if (text.size() > longest_name) {
		throw invalid(quoted(text) + " has " + std::to_string(text.size()) + " characters: the module keeps " +
			      std::to_string(longest_name));
	}
	const bool graphic =
		std::ranges::all_of(text, [](char character) { return character > ' ' && character < '\x7f'; });
	if (!graphic) {
		throw invalid(quoted(text) + " has a sign that no domain name has: write names of other "
					     "scripts in their ASCII form (xn--...)");
	}
	if (text.ends_with('.')) {
		throw invalid(quoted(text) + " would match nothing: leave the last dot out");
	}
	captiveportal_rule rule = {};
	rule.type = CAPTIVEPORTAL_RULE_DOMAIN;
	store_text(rule.pattern, text);
	return rule;
}

} // namespace

captiveportal_rule parse_rule(std::string_view text)
{
	if (text.empty()) {
		throw invalid("an empty rule: leave it out");
	}
	return meant_as_address(text) ? parse_address_rule(text) : parse_domain_rule(text);
}

captiveportal_rule parse_default_rule(std::string_view text)
{
	if (text.find_first_of(wildcards) != std::string_view::npos) {
		throw invalid(quoted(text) + " has a wildcard: default rules are exact names; patterns go to the "
					     "rules of an interface");
	}
	const captiveportal_rule rule = parse_rule(text);
	if (rule.type != CAPTIVEPORTAL_RULE_DOMAIN) {
		throw invalid(quoted(text) + " is an address: default rules are names; addresses go to the rules "
					     "of an interface");
	}
	return rule;
}

std::string format_rule(const captiveportal_rule &rule)
{
	if (rule.type == CAPTIVEPORTAL_RULE_DOMAIN) {
		return std::string(text_of(rule.pattern));
	}
	const std::string address = format_address(rule.address);
	const auto length = length_of_mask(rule.netmask);
	if (!length) {
		return address + "/" + format_address(rule.netmask);
	}
	return *length == longest_prefix ? address : address + "/" + std::to_string(*length);
}

void require_rule(const captiveportal_rule &rule)
{
	if (rule.type != CAPTIVEPORTAL_RULE_DOMAIN) {
		return;
	}
	if (text_of(rule.pattern).empty()) {
		throw invalid("an empty rule: leave it out");
	}
	(void)parse_domain_rule(text_of(rule.pattern));
}

void require_default_rule(const captiveportal_rule &rule)
{
	if (rule.type != CAPTIVEPORTAL_RULE_DOMAIN) {
		throw invalid("default rules are names; addresses go to the rules of an interface");
	}
	(void)parse_default_rule(text_of(rule.pattern));
}

} // namespace libcaptiveportal

using namespace libcaptiveportal;

extern "C" {

int captiveportal_parse_rule(const char *text, captiveportal_rule *rule)
{
	return guarded([&] {
		given(rule, "place for a rule") = parse_rule(word_of(text));
		return CAPTIVEPORTAL_OK;
	});
}

int captiveportal_parse_default_rule(const char *text, captiveportal_rule *rule)
{
	return guarded([&] {
		given(rule, "place for a rule") = parse_default_rule(word_of(text));
		return CAPTIVEPORTAL_OK;
	});
}

void captiveportal_format_rule(const captiveportal_rule *rule, char text[CAPTIVEPORTAL_RULE_SIZE])
{
	store_text(text, CAPTIVEPORTAL_RULE_SIZE, format_rule(*rule));
}
}
