// SPDX-License-Identifier: GPL-2.0-only
// Walled-garden rules as an administrator writes them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "captive_portal/walled_garden.h"
#include "captiveportal.h"

namespace cpctl
{

// A rule: a domain pattern ("*.example.com"), or A.B.C.D, A.B.C.D/LENGTH or A.B.C.D/MASK. What the module would cut or
// never match is a usage failure: a pattern that is empty, longer than 127 characters, has blanks or other signs that no
// name has, or ends with a dot.
[[nodiscard]] wg_rule parse_rule(std::string_view text);

// A default rule: an exact domain name, without wildcards, and no address.
[[nodiscard]] wg_rule parse_default_rule(std::string_view text);

// All of them, at most WG_RULES_PER_RECORD; more are a usage failure.
[[nodiscard]] std::vector<wg_rule> parse_rules(const std::vector<std::string> &texts,
					       wg_rule (*parse)(std::string_view text));

// Whether two rules open the same: of addresses only what the mask leaves counts.
[[nodiscard]] bool opens_same(const wg_rule &left, const wg_rule &right);
// Whether one of the rules opens the same as `rule`.
[[nodiscard]] bool has_rule(const std::vector<wg_rule> &rules, const wg_rule &rule);

// The same rule for libcaptiveportal, and back.
[[nodiscard]] captiveportal_rule library_rule(const wg_rule &record);
[[nodiscard]] wg_rule record_of(const captiveportal_rule &rule);

// As parse_rule() takes it.
[[nodiscard]] std::string format_rule(const wg_rule &rule);

} // namespace cpctl
