// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/garden_commands.h"

#include "cpctl/configuration.h"
#include "cpctl/failure.h"
#include "cpctl/garden_rules.h"
#include "cpctl/interface_names.h"
#include "cpctl/row_names.h"
#include "cpctl/value_names.h"

namespace cpctl
{

namespace
{

constexpr std::string_view default_garden = "default";

std::vector<std::string> texts_of(const Garden &garden)
{
	std::vector<std::string> texts;
	for (const wg_rule &rule : garden.rules) {
		texts.push_back(format_rule(rule));
	}
	return texts;
}

// The texts of two rules are equal when the rules are: an address rule has no text that a pattern can have.
void require_rules(const std::string &subject, const Garden &stored, const Garden &wanted)
{
	const std::vector<std::string> stored_texts = texts_of(stored);
	const std::vector<std::string> wanted_texts = texts_of(wanted);
	if (stored_texts.size() != wanted_texts.size()) {
		throw refusal(subject + ": the module kept " + std::to_string(stored_texts.size()) + " of " +
			      std::to_string(wanted_texts.size()) + " rules: is the kernel out of memory? See dmesg");
	}
	for (size_t i = 0; i < wanted_texts.size(); i++) {
		if (stored_texts[i] != wanted_texts[i]) {
			throw refusal(subject + ": the module kept '" + stored_texts[i] + "' in the place of '" +
				      wanted_texts[i] + "'");
		}
	}
}

// The module's getter knows the rows of interfaces only.
Garden stored_garden(const Session &session, uint32_t row)
{
	return row < CP_WIRELESS_INTERFACES ?
		       session.portal.garden(row) :
		       read_configuration(session.read_status_file).configuration.rows[row].garden;
}

void print_rules(const Session &session, const Garden &garden)
{
	for (const std::string &text : texts_of(garden)) {
		session.out << "    " << text << '\n';
	}
}

} // namespace

Action replace_garden(const std::string &name, const std::string &on_or_off, const std::vector<std::string> &rules)
{
	const Interface interface = parse_row(name);
	const Garden wanted = {parse_value(switch_names(), on_or_off, "switch"), parse_rules(rules, parse_rule)};
	return [interface, wanted](const Session &session) {
		session.portal.set_garden(UPDATE_RULE, static_cast<int32_t>(interface.row), wanted);
		const Garden stored = stored_garden(session, interface.row);
		require_rules(interface.name, stored, wanted);
		if (stored.enable_value != wanted.enable_value) {
			throw refusal(interface.name + ": the garden is not switched as was set");
		}
	};
}

Action replace_default_garden(const std::vector<std::string> &names)
{
	const Garden wanted = {0, parse_rules(names, parse_default_rule)};
	return [wanted](const Session &session) {
		session.portal.set_garden(UPDATE_DEFAULT_RULE, 0, wanted);
		require_rules("default rules", session.portal.default_rules(), wanted);
	};
}

Action replace_mirel_garden(const std::vector<std::string> &words)
{
	const bool has_switch = !words.empty() && (words.front() == "on" || words.front() == "off");
	const std::vector<std::string> rules(words.begin() + (has_switch ? 1 : 0), words.end());
	const Garden wanted = {has_switch ? parse_name(switch_names(), words.front(), "switch") : 1,
			       parse_rules(rules, parse_rule)};
	return [wanted](const Session &session) { session.portal.set_garden(UPDATE_MIREL_RULE, CP_ROW_MIREL, wanted); };
}

Action show_garden(const std::string &name)
{
	if (name == default_garden) {
		return [](const Session &session) {
			const Garden garden = session.portal.default_rules();
			session.out << "default: rules " << garden.rules.size() << '\n';
			print_rules(session, garden);
		};
	}
	const Interface interface = parse_interface(name);
	return [interface](const Session &session) {
		const Garden garden = session.portal.garden(interface.row);
		session.out << interface.name << ": garden " << (garden.on() ? "on" : "off") << " rules "
			    << garden.rules.size() << '\n';
		print_rules(session, garden);
	};
}

} // namespace cpctl
