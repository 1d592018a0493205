// SPDX-License-Identifier: GPL-2.0-only
// Walled gardens: commands 3 and 4.
#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "captive_portal/walled_garden.h"
#include "lib/addresses.h"
#include "lib/failure.h"
#include "lib/garden_rules.h"
#include "lib/handle.h"
#include "lib/interface.h"
#include "lib/interface_names.h"
#include "lib/status_files.h"

namespace libcaptiveportal
{

namespace
{

// Patterns in a record need no NUL; in a default rule's they may have none.
wg_rule record_of(const captiveportal_rule &rule)
{
	wg_rule record = {.rule_type = rule.type, .ip_addr = rule.address, .netmask = rule.netmask, .domain_name = {}};
	store_text(record.domain_name, text_of(rule.pattern));
	return record;
}

captiveportal_rule rule_of(const wg_rule &record)
{
	captiveportal_rule rule = {
		.type = record.rule_type, .address = record.ip_addr, .netmask = record.netmask, .pattern = {}};
	store_text(rule.pattern, text_of(record.domain_name));
	return rule;
}

void send_garden(const captiveportal &portal, wg_set_command sub_command, uint32_t row,
		 const captiveportal_garden &garden)
{
	auto record = std::make_unique<wg_cmd>();
	record->cmd = sub_command;
	record->iface = static_cast<int32_t>(row);
	record->enable_value = garden.enabled;
	record->rule_number = static_cast<int32_t>(garden.count);
	std::transform(garden.rules, garden.rules + garden.count, record->rules, record_of);
	exchange(portal, WALLED_GARDEN_IOCTL_SET, *record);
}

void require_rules(const captiveportal_garden &garden, void (*require)(const captiveportal_rule &rule))
{
	if (garden.count > CAPTIVEPORTAL_RULES_MOST) {
		throw invalid(std::to_string(garden.count) + " rules: the module takes " +
			      std::to_string(CAPTIVEPORTAL_RULES_MOST) + " at most");
	}
	std::for_each(garden.rules, garden.rules + garden.count, require);
}

void ask(const captiveportal &portal, wg_cmd &record, std::string_view what, captiveportal_garden &garden)
{
	exchange(portal, WALLED_GARDEN_IOCTL_GET, record);
	if (record.rule_number < 0 || record.rule_number > WG_RULES_PER_RECORD) {
		throw no_answer(what);
	}
	garden = {};
	garden.count = static_cast<uint32_t>(record.rule_number);
	std::transform(record.rules, record.rules + garden.count, garden.rules, rule_of);
}

void ask_for_garden(const captiveportal &portal, uint32_t row, captiveportal_garden &garden)
{
	auto record = std::make_unique<wg_cmd>();
	record->cmd = GET_WALLED_GARDEN_RULE;
	record->iface = static_cast<int32_t>(row);
	record->rule_number = -1;
	ask(portal, *record, interface_of_row(row), garden);
	garden.enabled = record->enable_value;
}

void ask_for_default_rules(const captiveportal &portal, captiveportal_garden &names)
{
	auto record = std::make_unique<wg_cmd>();
	record->cmd = GET_DEFAULT_RULE;
	// Stays as it is when there is no default rule.
	record->rule_number = 0;
	ask(portal, *record, "default rules", names);
}

// The texts of two rules are equal when the rules are: an address rule has no text that a pattern can have.
std::vector<std::string> texts_of(const captiveportal_garden &garden)
{
	std::vector<std::string> texts(garden.count);
	std::transform(garden.rules, garden.rules + garden.count, texts.begin(), format_rule);
	return texts;
}

void require_same(std::string_view subject, const std::vector<std::string> &stored,
		  const std::vector<std::string> &wanted)
{
	if (stored.size() != wanted.size()) {
		throw refused(std::string(subject) + ": the module kept " + std::to_string(stored.size()) + " of " +
			      std::to_string(wanted.size()) + " rules: is the kernel out of memory? See dmesg");
	}
	const auto [kept, meant] = std::ranges::mismatch(stored, wanted);
	if (kept != stored.end()) {
		throw refused(std::string(subject) + ": the module kept " + quoted(*kept) + " in the place of " +
			      quoted(*meant));
	}
}

void require_switch(std::string_view subject, bool same)
{
	if (!same) {
		throw refused(std::string(subject) + ": the garden is not switched as was set: see the kernel log "
						     "(dmesg)");
	}
}

captiveportal_rule rule_of_line(std::string_view line)
{
	captiveportal_rule rule = {};
	rule.type = static_cast<uint32_t>(number_of(line, "type").value_or(0));
	rule.address = scan_address(value_of(line, "address").value_or("")).value_or(0);
	rule.netmask = scan_address(value_of(line, "netmask").value_or("")).value_or(0);
	store_text(rule.pattern, value_of(line, "pattern").value_or(""));
	return rule;
}

// What no command tells, from the status files: switch and rules of a further row, or the switch alone.
int verify_further_row(const captiveportal &portal, std::string_view name, uint32_t enabled,
		       const std::vector<std::string> *wanted)
{
	std::string settings;
	std::string rules;
	try {
		settings = read_status_file(&portal, "status");
		rules = read_status_file(&portal, "garden");
	} catch (const Failure &) {
		return CAPTIVEPORTAL_UNVERIFIED;
	}
	std::vector<std::string> stored;
	std::string_view rest = rules;
	while (const auto line = take_line(rest)) {
		if (keyword_of(*line) == "rule" && value_of(*line, "interface") == name) {
			stored.push_back(format_rule(rule_of_line(*line)));
		}
	}
	if (wanted != nullptr) {
		require_same(name, stored, *wanted);
	}
	rest = settings;
	while (const auto line = take_line(rest)) {
		if (keyword_of(*line) == "interface" && value_of(*line, "name") == name) {
			require_switch(name, number_of(*line, "garden") == enabled);
			return CAPTIVEPORTAL_OK;
		}
	}
	return CAPTIVEPORTAL_UNVERIFIED;
}

int verify(const captiveportal &portal, uint32_t row, uint32_t enabled, const std::vector<std::string> *rules)
{
	const std::string name = interface_of_row(row);
	if (row >= CP_WIRELESS_INTERFACES) {
		return verify_further_row(portal, name, enabled, rules);
	}
	captiveportal_garden stored = {};
	ask_for_garden(portal, row, stored);
	if (rules != nullptr) {
		require_same(name, texts_of(stored), *rules);
	}
	require_switch(name, stored.enabled == enabled);
	return CAPTIVEPORTAL_OK;
}

int replace(const captiveportal &portal, std::string_view interface, const captiveportal_garden &garden)
{
	const uint32_t row = row_of_any(interface);
	require_rules(garden, require_rule);
	send_garden(portal, row == CP_ROW_MIREL ? UPDATE_MIREL_RULE : UPDATE_RULE, row, garden);
	if (!portal.read_back) {
		return CAPTIVEPORTAL_OK;
	}
	const std::vector<std::string> rules = texts_of(garden);
	return verify(portal, row, garden.enabled, &rules);
}

} // namespace

} // namespace libcaptiveportal

using namespace libcaptiveportal;

extern "C" {

int captiveportal_replace_garden(captiveportal *portal, const char *interface, const captiveportal_garden *garden)
{
	return guarded([&] { return replace(given(portal, "handle"), word_of(interface), given(garden, "garden")); });
}

int captiveportal_switch_garden(captiveportal *portal, const char *interface, uint32_t enabled)
{
	return guarded([&] {
		const captiveportal &handle = given(portal, "handle");
		const uint32_t row = row_of_any(word_of(interface));
		captiveportal_garden garden = {};
		garden.enabled = enabled;
		send_garden(handle, WALLED_GARDEN, row, garden);
		return handle.read_back ? verify(handle, row, enabled, nullptr) : CAPTIVEPORTAL_OK;
	});
}

int captiveportal_get_garden(captiveportal *portal, const char *interface, captiveportal_garden *garden)
{
	return guarded([&] {
		ask_for_garden(given(portal, "handle"), row_of_interface(word_of(interface)),
			       given(garden, "place for a garden"));
		return CAPTIVEPORTAL_OK;
	});
}

int captiveportal_replace_default_rules(captiveportal *portal, const captiveportal_garden *names)
{
	return guarded([&] {
		const captiveportal &handle = given(portal, "handle");
		const captiveportal_garden &wanted = given(names, "default rules");
		require_rules(wanted, require_default_rule);
		captiveportal_garden sent = wanted;
		sent.enabled = 0;
		send_garden(handle, UPDATE_DEFAULT_RULE, 0, sent);
		if (handle.read_back) {
			captiveportal_garden stored = {};
			ask_for_default_rules(handle, stored);
			require_same("default rules", texts_of(stored), texts_of(wanted));
		}
		return CAPTIVEPORTAL_OK;
	});
}

int captiveportal_get_default_rules(captiveportal *portal, captiveportal_garden *names)
{
	return guarded([&] {
		ask_for_default_rules(given(portal, "handle"), given(names, "place for rules"));
		return CAPTIVEPORTAL_OK;
	});
}
}
