// SPDX-License-Identifier: GPL-2.0-only
#include "garden/rule_status.h"

#include "base/lock.h"
#include "base/status_text.h"
#include "garden/walled_garden.h"

namespace captive_portal
{

void write_row_rules(uint32_t row, cp_status_text *out)
{
	const LockGuard guard(Lock::walledgarden);
	for (const wg_rule_node *rule = walled_garden_table[row].rule_list; rule != nullptr; rule = rule->next) {
		cp_status_print(out, "rule");
		print_row_name(out, "interface", row);
		cp_status_print(out, " type=%u", rule->rule_type);
		// An address rule's pattern counts too: names are matched against it.
		if (rule->rule_type != WG_RULE_DOMAIN) {
			print_address(out, "address", {rule->ip_addr});
			print_address(out, "netmask", {rule->netmask});
		}
		print_text(out, "pattern", text_of_field(rule->domain_name));
		cp_status_print(out, "\n");
	}
}

void write_default_rules(cp_status_text *out)
{
	const LockGuard guard(Lock::walledgarden);
	for (const wg_default_rule &rule : default_rule) {
		const Text name = text_of_field(rule.domain_name);
		if (name.length == 0) {
			continue;
		}
		cp_status_print(out, "default-rule slot=%u", static_cast<uint32_t>(&rule - default_rule));
		print_text(out, "name", name);
		cp_status_print(out, "\n");
	}
}

void write_garden_state(uint32_t row, cp_status_text *out)
{
	uint32_t enable_value = 0;
	uint32_t rules = 0;
	{
		const LockGuard guard(Lock::walledgarden);
		enable_value = walled_garden_table[row].enable_value;
		for (const wg_rule_node *rule = walled_garden_table[row].rule_list; rule != nullptr;
		     rule = rule->next) {
			++rules;
		}
	}
	cp_status_print(out, " garden=%u rules=%u", enable_value, rules);
}

} // namespace captive_portal
