// SPDX-License-Identifier: GPL-2.0-only
#include <charconv>
#include <sstream>

#include "captive_portal/marks.h"
#include "cpctl/findings.h"
#include "cpctl/interface_names.h"
#include "cpctl/nft_ruleset.h"

namespace cpctl
{

namespace
{

// What the module means by the mark; nothing for marks that are not its own. The reputation marks are for other rules.
[[nodiscard]] std::string meaning_of_mark(uint32_t mark)
{
	for (uint32_t row = 0; row < CP_WIRELESS_INTERFACES; ++row) {
		if (mark == cp_interface_mark(row)) {
			return "a client of " + interface_of_row(row).name + " that is not logged in";
		}
	}
	switch (mark) {
	case MARK_MIREL_BLACK:
		return "a client on the MIREL black list";
	case MARK_LOGOUT:
		return "a client that asks for the logout address";
	case MARK_DNS_FILTER:
		return "a client that asks for the DNS filter's address";
	default:
		return "";
	}
}

void add_if_reserved(uint32_t mark, const std::string &where, Findings &findings)
{
	const std::string meaning = meaning_of_mark(mark);
	if (!meaning.empty()) {
		findings.add({"mark", where,
			      "a rule sets mark " + std::to_string(mark) + ", by which the module knows " + meaning,
			      "choose a mark outside 5200 to 5324"});
	}
}

// Words of a rule in the manner of iptables: "-j MARK --set-xmark 0x1450/0xffffffff", "-j mark --mark-set 0x1450".
void look_at_rule(const std::string &rule, const std::string &where, Findings &findings)
{
	std::istringstream words(rule);
	std::string option;
	for (std::string word; words >> word; option = word) {
		if (option != "--set-xmark" && option != "--set-mark" && option != "--mark-set") {
			continue;
		}
		const bool hexadecimal = word.starts_with("0x");
		const char *const begin = word.data() + (hexadecimal ? 2 : 0);
		uint32_t mark = 0;
		if (std::from_chars(begin, word.data() + word.size(), mark, hexadecimal ? 16 : 10).ec == std::errc()) {
			add_if_reserved(mark, where, findings);
		}
	}
}

void look_at_rules(const std::optional<std::string> &rules, const std::string &where, Findings &findings)
{
	std::istringstream lines(rules.value_or(""));
	for (std::string line; std::getline(lines, line);) {
		look_at_rule(line, where, findings);
	}
}

} // namespace

void check_marks(Machine &machine, const std::string &nft_ruleset, Findings &findings)
{
	for (const MarkRule &rule : mark_rules(nft_ruleset)) {
		add_if_reserved(rule.mark, "nft " + rule.chain, findings);
	}
	// The programs that list all tables make none; those that list one may.
	for (const char *const program : {"iptables-save", "ip6tables-save", "ebtables-save"}) {
		look_at_rules(ask_program(machine, {program}, "marks that rules of other programs set", findings),
			      program, findings);
	}
}

} // namespace cpctl
