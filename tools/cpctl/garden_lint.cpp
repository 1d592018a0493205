// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/garden_lint.h"

#include <algorithm>

#include "captive_portal/control.h"
#include "cpctl/addresses.h"
#include "cpctl/garden_rules.h"
#include "cpctl/interface_names.h"
#include "cpctl/portal_probes.h"
#include "cpctl/quoted.h"
#include "garden/pattern_pieces.h"

namespace cpctl
{

namespace
{

using captive_portal::is_wildcard;

// So many hosts are written out in a sentence.
constexpr size_t most_hosts_told = 3;

[[nodiscard]] captive_portal::Text core_text(std::string_view text)
{
	return {text.data(), text.size()};
}

[[nodiscard]] bool is_capital(char character)
{
	return character >= 'A' && character <= 'Z';
}

[[nodiscard]] bool is_nothing_but_wildcards(std::string_view pattern)
{
	return !pattern.empty() && std::ranges::all_of(pattern, is_wildcard);
}

// A name that the pattern has: "a" stands for each wildcard.
[[nodiscard]] std::string example_of(std::string_view pattern)
{
	std::string name;
	for (const char character : pattern) {
		name += is_wildcard(character) ? 'a' : character;
	}
	return name;
}

// The rules of one list, judged one after the other.
class Linter
{
public:
	Linter(const std::vector<wg_rule> &rules, const std::vector<std::string> &open_names)
	    : rules_(rules), open_names_(open_names)
	{
	}

	std::vector<RuleWarning> all()
	{
		for (index_ = 0; index_ < rules_.size(); index_++) {
			text_ = format_rule(rules_[index_]);
			// What is there already, and told of, is not told of twice.
			if (duplicate() || contained() || default_name()) {
				continue;
			}
			if (rules_[index_].rule_type == WG_RULE_DOMAIN) {
				domain();
			} else {
				address();
			}
		}
		return std::move(warnings_);
	}

private:
	void warn(std::string_view kind, const std::string &sentence, std::vector<std::string> names = {},
		  std::optional<size_t> other = {})
	{
		warnings_.push_back({kind, index_, other, std::move(names), quoted(text_) + sentence});
	}

	bool duplicate()
	{
		const auto first = std::ranges::find_if(
			rules_, [this](const wg_rule &rule) { return opens_same(rule, rules_[index_]); });
		const auto other = static_cast<size_t>(first - rules_.begin());
		if (other == index_) {
			return false;
		}
		const std::string text = format_rule(rules_[other]);
		warn("duplicate", text == text_ ? " is there twice" : " opens the same as " + quoted(text), {}, other);
		return true;
	}

	// Whether `inner` opens nothing that `outer` does not. Of patterns with wildcards only the one that has every name
	// is known to have another.
	static bool contains(const wg_rule &outer, const wg_rule &inner)
	{
		const bool domain = outer.rule_type == WG_RULE_DOMAIN;
		if (domain != (inner.rule_type == WG_RULE_DOMAIN)) {
			return false;
		}
		if (domain) {
			const std::string_view pattern = text_of(outer.domain_name);
			const std::string_view name = text_of(inner.domain_name);
			return has_wildcard(core_text(name)) ? is_nothing_but_wildcards(pattern) :
							       pattern_opens(pattern, name);
		}
		return (outer.netmask & inner.netmask) == outer.netmask &&
		       (outer.ip_addr & outer.netmask) == (inner.ip_addr & outer.netmask);
	}

	bool contained()
	{
		const wg_rule &rule = rules_[index_];
		for (size_t other = 0; other < rules_.size(); other++) {
			// Of two that open the same, as "*" and "?", the first is worth its place.
			if (other == index_ || !contains(rules_[other], rule) ||
			    (other > index_ && contains(rule, rules_[other]))) {
				continue;
			}
			warn("contained", " opens nothing that " + quoted(format_rule(rules_[other])) + " does not", {},
			     other);
			return true;
		}
		return false;
	}

	bool default_name()
	{
		const wg_rule &rule = rules_[index_];
		if (rule.rule_type != WG_RULE_DOMAIN || has_wildcard(core_text(text_of(rule.domain_name))) ||
		    std::ranges::find(open_names_, text_of(rule.domain_name)) == open_names_.end()) {
			return false;
		}
		warn("default-name", " is among the default names, which are open in every garden that is on");
		return true;
	}

	void address()
	{
		const wg_rule &rule = rules_[index_];
		if (rule.netmask == 0) {
			std::vector<std::string> hosts;
			for (const PortalProbe &probe : portal_probes()) {
				hosts.emplace_back(probe.host);
			}
			warn("opens-probe",
			     " opens every address, and so those of the hosts that systems ask whether there is a "
			     "portal: "
			     "they may find none",
			     std::move(hosts));
		}
		if (text_ == CP_SOCIAL_LOGIN_ADDRESS) {
			warn("never-open", " opens nothing: the module keeps that address for the social login");
		}
	}

	void domain()
	{
		probes();
		const std::string_view pattern = text_;
		if (std::ranges::any_of(pattern, is_capital)) {
			warn("letter-case",
			     " has capital letters: the module compares letter by letter, and names are asked "
			     "for in small ones");
		}
		if (pattern == CP_SOCIAL_LOGIN_HOST) {
			warn("never-open", " opens nothing: the module keeps that host shut in every garden");
		}
		if (pattern.empty() || is_nothing_but_wildcards(pattern)) {
			return;
		}
		question_mark(pattern);
		glued_label(pattern);
		open_end(pattern);
		short_end(pattern);
	}

	void probes()
	{
		std::vector<std::string> hosts;
		std::string told;
		for (const PortalProbe &probe : portal_probes()) {
			if (!pattern_opens(text_, probe.host)) {
				continue;
			}
			if (hosts.size() < most_hosts_told) {
				told += (hosts.empty() ? " opens " : ", ") + std::string(probe.host) + " (" +
					std::string(probe.system) + ")";
			}
			hosts.emplace_back(probe.host);
		}
		if (hosts.empty()) {
			return;
		}
		if (hosts.size() > most_hosts_told) {
			told += " and " + std::to_string(hosts.size() - most_hosts_told) + " more such hosts";
		}
		warn("opens-probe", told + ": systems that ask there whether there is a portal may find none",
		     std::move(hosts));
	}

	// A name that the module opens, although the writer may not think so.
	void opens(const std::string &name, const std::string &before, const std::string &behind)
	{
		if (pattern_opens(text_, name)) {
			warn("matches-more", before + quoted(name) + behind, {name});
		}
	}

	// A shell's "?" is one character.
	void question_mark(std::string_view pattern)
	{
		const size_t mark = pattern.find('?');
		if (mark != std::string_view::npos) {
			opens(example_of(pattern.substr(0, mark)) + "x.y" + example_of(pattern.substr(mark + 1)),
			      ": \"?\" stands for any run of characters, not for one, and so opens ", ", too");
		}
	}

	// "*example.com", meant for example.com and all below it.
	void glued_label(std::string_view pattern)
	{
		const size_t label = pattern.find_first_not_of("*?");
		if (label == 0 || pattern[label] == '.') {
			return;
		}
		const std::string rest(pattern.substr(label));
		if (std::ranges::none_of(rest, is_wildcard)) {
			opens("bad" + rest, " opens ", ", too: for what is below a name write " + quoted("*." + rest));
		}
	}

	// "www.*", meant for a few domains.
	void open_end(std::string_view pattern)
	{
		if (!is_wildcard(pattern.back())) {
			return;
		}
		std::string name = example_of(pattern.substr(0, pattern.find_last_not_of("*?") + 1));
		if (name.back() != '.') {
			name += '.';
		}
		opens(name + "other.example", " opens ", ", too, and so whatever domain anybody may own");
	}

	// The last piece is taken at its left-most place behind those before it, and the name must end there. That is no other
	// place than the writer thinks of unless a name has the piece twice, which one of several labels hardly is.
	void short_end(std::string_view pattern)
	{
		const std::string last(pattern.substr(pattern.find_last_of("*?") + 1));
		const size_t label = last.starts_with('.') ? 1 : 0;
		if (last.size() == pattern.size() || last.size() == label ||
		    last.find('.', label) != std::string::npos) {
			return;
		}
		const std::string name = example_of(pattern.substr(0, pattern.size() - last.size())) +
					 (label == 0 ? "." : "") + last + "x" + (label == 0 ? "." : "") + last;
		if (!pattern_opens(text_, name)) {
			warn("matches-less",
			     " does not open " + quoted(name) + ": the first " + quoted(last) +
				     " of a name must be its end, the module looks for no other",
			     {name});
		}
	}

	const std::vector<wg_rule> &rules_;
	const std::vector<std::string> &open_names_;
	size_t index_ = 0;
	std::string text_;
	std::vector<RuleWarning> warnings_;
};

} // namespace

std::vector<RuleWarning> lint(const std::vector<wg_rule> &rules, const std::vector<std::string> &open_names)
{
	return Linter(rules, open_names).all();
}

bool pattern_opens(std::string_view pattern, std::string_view name)
{
	return name != CP_SOCIAL_LOGIN_HOST &&
	       captive_portal::characters_left_over(core_text(pattern), core_text(name)) == 0;
}

} // namespace cpctl
