// SPDX-License-Identifier: GPL-2.0-only
// Rules compiled when they come, so that a name is matched once for all rows, and against few of the rules. The rule
// lists stay the truth: what is read back, and in which order. docs/rule-index.md says how it works, and why so.
//
// Everything here is called with walledgarden_lock held.
#pragma once

#include "garden/walled_garden.h"

namespace captive_portal
{

// A name that rules are asked about.
class MatchedName
{
public:
	explicit MatchedName(Text text) : text_(text) {}

	[[nodiscard]] Text text() const { return text_; }
	// Bit c modulo 64 of each character c; worked out when first asked for.
	[[nodiscard]] uint64_t characters();

private:
	Text text_;
	uint64_t characters_ = 0;
};

// Compiles the rule, whose pattern does not change any more, and takes it into the index for row `row`. The index lies
// in the rules and needs no memory of its own.
void index_rule(wg_rule_node &rule, uint32_t row);

// Takes all rules of the row out.
void unindex_rules(const wg_row &row);

// Compiles default_rule, after each change of it.
void index_default_rules();

// True when the name is one of the default rules.
[[nodiscard]] bool is_default_name(Text name);

// True when the rule's pattern matches the name. The rule must be in the index.
[[nodiscard]] bool compiled_rule_matches(const wg_rule_node &rule, MatchedName &name);

struct MatchingRows {
	uint32_t matching;  // bit i: the name is in the walled garden of row i
	uint32_t undecided; // bit i: it may still be; row i's rules must be asked
};

// Which rows have the name in their walled garden, by their own rules or by a default rule; the caller has dealt with
// the exception host. Visits at most 128 rules.
[[nodiscard]] MatchingRows rows_that_match(MatchedName &name);

} // namespace captive_portal
