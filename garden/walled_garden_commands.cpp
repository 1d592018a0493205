// SPDX-License-Identifier: GPL-2.0-only
// Commands 3 and 4: what the daemon writes into the rule tables and reads from them.
#include "base/atomic_word.h"
#include "base/lock.h"
#include "base/memory.h"
#include "garden/arecord_cache.h"
#include "garden/rule_index.h"
#include "garden/walled_garden.h"

namespace captive_portal
{

namespace
{

constexpr int32_t done = 0;
constexpr int32_t refused = -1;
constexpr int32_t no_memory = -12;
constexpr int32_t too_many_rules = -22;

// Every function down to refresh_cache() is called with walledgarden_lock held.

[[nodiscard]] bool is_row(int32_t iface)
{
	return iface >= 0 && iface < CP_ROWS;
}

// Logs a number that is larger than a record can hold. A negative one is fine and means none.
[[nodiscard]] bool fits_record(int32_t rule_number)
{
	if (rule_number <= WG_RULES_PER_RECORD) {
		return true;
	}
	cp_log(CP_LOG_ERR, "[walled garden] rule_number %d out of range\n", rule_number);
	return false;
}

int32_t set_enable_value(const wg_cmd &command)
{
	cp_log(CP_LOG_DEBUG, "if_device_write_wg: WALLED_GARDEN wg_cmd->iface=%d wg_cmd->enable_value=%d\n",
	       command.iface, static_cast<int32_t>(command.enable_value));
	if (!is_row(command.iface)) {
		return refused;
	}
	store_word(walled_garden_table[command.iface].enable_value, command.enable_value);
	return done;
}

int32_t replace_default_rules(const wg_cmd &command)
{
	cp_log(CP_LOG_DEBUG, "if_device_write_wg: UPDATE_DEFAULT_RULE wg_cmd->rule_number = %d\n", command.rule_number);
	if (!fits_record(command.rule_number)) {
		return too_many_rules;
	}
	__builtin_memset(default_rule, 0, sizeof(default_rule));
	for (int32_t i = 0; i < command.rule_number; ++i) {
		// All 128 bytes, so that such a name has no NUL.
		__builtin_memcpy(default_rule[i].domain_name, command.rules[i].domain_name, WG_DOMAIN_NAME_SIZE);
		cp_log(CP_LOG_DEBUG, "default_rule[%d].domain_name=%.128s\n", i, default_rule[i].domain_name);
	}
	index_default_rules();
	return done;
}

// A node in no list, or null.
[[nodiscard]] wg_rule_node *make_rule_node(const wg_rule &rule)
{
	wg_rule_node *const node = allocate_zeroed<wg_rule_node>();
	if (node != nullptr) {
		node->rule_type = rule.rule_type;
		node->ip_addr = rule.ip_addr;
		node->netmask = rule.netmask;
		store_text(node->domain_name, text_of_field(rule.domain_name));
	}
	return node;
}

// An update of the rules deliberately switches the row's walled garden too.
int32_t replace_rules(const wg_cmd &command)
{
	cp_log(CP_LOG_DEBUG, "if_device_write_wg: UPDATE_RULE wg_cmd->iface=%d wg_cmd->rule_number = %d\n",
	       command.iface, command.rule_number);
	if (!is_row(command.iface)) {
		return refused;
	}
	if (!fits_record(command.rule_number)) {
		return too_many_rules;
	}
	wg_row &row = walled_garden_table[command.iface];
	store_word(row.enable_value, command.enable_value);
	free_rule_list(row);
	wg_rule_node **tail = &row.rule_list;
	for (int32_t i = 0; i < command.rule_number; ++i) {
		wg_rule_node *const node = make_rule_node(command.rules[i]);
		if (node == nullptr) {
			// The rules before it stay: part of a garden is better than none.
			break;
		}
		*tail = node;
		tail = &node->next;
		index_rule(*node, static_cast<uint32_t>(command.iface));
	}
	return done;
}

[[nodiscard]] int32_t change_rules(wg_cmd &command)
{
	const LockGuard guard(Lock::walledgarden);
	// Also for one that changes none: judging a name again does no harm.
	store_word(rules_version, rules_version + 1);
	switch (command.cmd) {
	case WALLED_GARDEN:
		return set_enable_value(command);
	case UPDATE_DEFAULT_RULE:
		return replace_default_rules(command);
	case UPDATE_MIREL_RULE:
		command.iface = CP_ROW_MIREL;
		return replace_rules(command);
	case UPDATE_RULE:
		return replace_rules(command);
	default:
		return refused;
	}
}

// Asks the new rules about the cached names. Called without walledgarden_lock, which the refresh takes below its own.
void refresh_cache(const wg_cmd &command)
{
	switch (command.cmd) {
	case UPDATE_DEFAULT_RULE:
		update_dns_aRecord_lists();
		break;
	case UPDATE_RULE:
	case UPDATE_MIREL_RULE:
		update_dns_aRecord_list(static_cast<uint32_t>(command.iface));
		break;
	default:
		break;
	}
}

void get_rules(wg_cmd &record)
{
	const uint32_t iface = static_cast<uint32_t>(record.iface);
	if (iface >= CP_WIRELESS_INTERFACES) {
		return;
	}
	const wg_row &row = walled_garden_table[iface];
	record.enable_value = row.enable_value;
	int32_t count = 0;
	for (const wg_rule_node *node = row.rule_list; node != nullptr; node = node->next) {
		wg_rule &rule = record.rules[count];
		rule.rule_type = node->rule_type;
		if (node->rule_type == WG_RULE_DOMAIN) {
			overwrite_text(rule.domain_name, text_of_field(node->domain_name));
		} else {
			rule.ip_addr = node->ip_addr;
			rule.netmask = node->netmask;
		}
		++count;
	}
	record.rule_number = count;
}

// Deliberately stops at the first empty slot, though the matcher skips it, and says nothing when that is the first.
void get_default_rules(wg_cmd &record)
{
	for (int32_t i = 0; i < WG_RULES_PER_RECORD; ++i) {
		const Text name = text_of_field(default_rule[i].domain_name);
		if (name.length == 0) {
			return;
		}
		overwrite_text(record.rules[i].domain_name, name);
		record.rule_number = i + 1;
	}
}

} // namespace

int32_t if_device_write_wg(const wg_cmd *record, uint32_t length)
{
	const Owned<wg_cmd> copy(allocate_zeroed<wg_cmd>());
	if (!copy) {
		return no_memory;
	}
	__builtin_memcpy(copy.get(), record, length < sizeof(wg_cmd) ? length : sizeof(wg_cmd));
	const int32_t result = change_rules(*copy);
	if (result == done) {
		refresh_cache(*copy);
	}
	return result;
}

int32_t get_walled_garden_list(wg_cmd *record)
{
	const LockGuard guard(Lock::walledgarden);
	switch (record->cmd) {
	case GET_WALLED_GARDEN_RULE:
		get_rules(*record);
		break;
	case GET_DEFAULT_RULE:
		get_default_rules(*record);
		break;
	default:
		break;
	}
	return done;
}

} // namespace captive_portal
