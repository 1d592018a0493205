// SPDX-License-Identifier: GPL-2.0-only
// The walled garden: rules per interface, default rules for every interface, and the question whether an address or a
// name is in them.
#pragma once

#include "base/byte_order.h"
#include "base/text.h"
#include "captive_portal/walled_garden.h"
#include "platform/platform.h"

namespace captive_portal
{

// One rule of one interface, an allocation of its own, owned by its row.
struct wg_rule_node {
	wg_rule_node *next;
	uint32_t rule_type; // enum wg_rule_type
	uint32_t ip_addr;   // network order
	uint32_t netmask;   // network order
	char domain_name[WG_DOMAIN_NAME_SIZE];

	// What rule_index.cpp has made of it, zero before.
	uint32_t hash;                  // of its literal, the part that every matching name begins or ends with
	wg_rule_node *next_of_literal;  // rules whose literals are found in one place
	wg_rule_node **link_of_literal; // what points to this one there
	uint64_t characters;            // that a matching name must have: bit c modulo 64
	uint8_t kind;
	uint8_t row;
	uint8_t pattern_length;
	uint8_t literal_length;
	uint8_t least_length;  // of a matching name
	bool same_as_previous; // the rule before it in its place has the same pattern
};

// One row of walled_garden_table, guarded by walledgarden_lock; `mark` and `enable_value` are also read without it, as words.
struct wg_row {
	char iface[CP_INTERFACE_NAME_SIZE]; // empty for rows 24..27
	uint32_t mark;                      // 0 for rows 24..27
	uint32_t enable_value;
	wg_rule_node *rule_list; // in the order received
};

// Exact name of up to 128 bytes; without a NUL it ends at its end. An empty slot is unused.
struct wg_default_rule {
	char domain_name[WG_DOMAIN_NAME_SIZE];
};

extern wg_row walled_garden_table[CP_ROWS];
extern wg_default_rule default_rule[WG_DEFAULT_RULES];
// Grows with each change of rules; read without the lock, as a word.
extern uint32_t rules_version;

// Start: names and marks of the wireless rows; those and row 27 off and empty. Takes walledgarden_lock.
void init_walled_garden_table();
// Stop: frees every rule. No hook and no command runs any more. Takes walledgarden_lock.
void free_walled_garden_rules();

// Frees the rules of the row and leaves it empty. Called with walledgarden_lock held.
void free_rule_list(wg_row &row);

// Command 3. `record` is the kernel's copy of the caller's wg_cmd, `length` its size in bytes; the function works on a
// copy of its own. 0, -1 for an unknown sub-command or a row outside 0..27, -12 when the copy cannot be allocated,
// -22 for more rules than a record holds. Takes walledgarden_lock, then, for the cache refresh, dns_list_lock.
[[nodiscard]] int32_t if_device_write_wg(const wg_cmd *record, uint32_t length);

// Command 4: fills the record in place; 0 always. Takes walledgarden_lock.
int32_t get_walled_garden_list(wg_cmd *record);

// `enable_value` of the wireless interface whose packets carry `mark`, 0 when there is none; row 27's for
// MARK_MIREL_BLACK. No lock.
[[nodiscard]] uint32_t is_walled_garden_enable(uint32_t mark);

enum class GardenQuery : uint32_t {
	address = 0,
	domain = 1,
};

// The rows whose walled garden the name is in, bit i for row i: what match_garden_list() says for each. Takes
// walledgarden_lock; dns_list_lock may be held.
[[nodiscard]] uint32_t match_garden_rows(Text domain);

// Whether what each single match attempt does can be seen, by its log lines or by the memory that it asks for: then
// every rule is asked in its order, as if nothing were compiled.
[[nodiscard]] bool match_attempts_are_seen();

// True when the address (address queries) or the name (domain queries) is in the walled garden of row `iface`, 0..27.
// A query without what its type needs (address 0.0.0.0, `domain` null) is logged at debug level 1 and false. So is,
// without a line, a query of any other type.
// Takes walledgarden_lock; dns_list_lock may be held.
[[nodiscard]] bool match_garden_list(GardenQuery type, Ipv4Address address, const Text *domain, uint32_t iface);

} // namespace captive_portal
