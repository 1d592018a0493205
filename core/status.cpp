// SPDX-License-Identifier: GPL-2.0-only
#include "core/status.h"

#include "base/counters.h"
#include "base/debug_level.h"
#include "base/lock.h"
#include "base/status_text.h"
#include "garden/arecord_cache.h"
#include "garden/cache_status.h"
#include "garden/rule_status.h"
#include "gatekeeper/client_status.h"
#include "portal/interface_table.h"

namespace captive_portal
{

namespace
{

constexpr const char *reason_names[CP_REASON_COUNT] = {
#define NAME_OF_REASON(enumerator, name, sentence) name,
	CP_REASONS(NAME_OF_REASON)
#undef NAME_OF_REASON
};

[[nodiscard]] int32_t cached_addresses()
{
	const LockGuard guard(Lock::dns_list);
	return total_ip_count;
}

void write_module(cp_status_text *out)
{
	cp_status_print(out, "module format=%u debug_level=%d dns_filter=%u", STATUS_FORMAT, load_word(debug_level),
			load_word(dns_filter_activate));
	print_address(out, "gateway", load_word(ap_gateway));
	print_address(out, "ap_address", load_word(ap_addr));
	print_mac(out, "ap_mac", load_ap_mac());
	cp_status_print(out, " cached_addresses=%d", cached_addresses());
	write_mirel_counts(out);
	cp_status_print(out, "\n");
}

// What commands change together is read together. It becomes text without the lock.
struct PortalState {
	uint32_t mode;
	uint32_t walled_garden;
	uint32_t block_https;
	char logout[CP_DOTTED_QUAD_SIZE];
};

[[nodiscard]] PortalState read_portal_state(const cp_row &row)
{
	const LockGuard guard(Lock::cp);
	PortalState state = {row.cp_mode, row.cp_walled_garden, row.block_https, {}};
	__builtin_memcpy(state.logout, row.logout_ip, sizeof(state.logout));
	return state;
}

void write_portal_state(const cp_row &row, cp_status_text *out)
{
	const PortalState state = read_portal_state(row);
	cp_status_print(out, " mark=0x%x http_port=%u https_port=%u mode=%u walled_garden=%u block_https=%u",
			load_word(row.mark), load_word(row.http_port), load_word(row.https_port), state.mode,
			state.walled_garden, state.block_https);
	print_text(out, "logout", text_of_field(state.logout));
}

void write_row(uint32_t row, cp_status_text *out)
{
	cp_status_print(out, "interface index=%u", row);
	print_row_name(out, "name", row);
	write_portal_state(captive_portal_table[row], out);
	write_garden_state(row, out);
	cp_status_print(out, " connections=%u", load_word(captive_portal_table[row].connections));
	if (row < CP_WIRELESS_INTERFACES) {
		write_client_counts(row, out);
	}
	cp_status_print(out, "\n");
}

constexpr uint32_t first_row_part = 1;
constexpr uint32_t first_owe_part = first_row_part + CP_ROWS;
constexpr uint32_t state_parts = first_owe_part + CP_OWE_INTERFACES;

void write_state(uint32_t part, cp_status_text *out)
{
	if (part < first_row_part) {
		write_module(out);
	} else if (part < first_owe_part) {
		write_row(part - first_row_part, out);
	} else {
		write_owe_mapping(part - first_owe_part, out);
	}
}

// The default rules come first: they hold everywhere.
void write_rules(uint32_t part, cp_status_text *out)
{
	if (part == 0) {
		write_default_rules(out);
	} else {
		write_row_rules(part - 1, out);
	}
}

// What was never counted has no line. One part for each row.
void write_counts(uint32_t row, cp_status_text *out)
{
	for (uint32_t reason = 0; reason < CP_REASON_COUNT; ++reason) {
		const uint64_t value = cp_counted(counter_of(row, static_cast<cp_reason>(reason)));
		if (value == 0) {
			continue;
		}
		cp_status_print(out, "count");
		print_row_name(out, "interface", row);
		cp_status_print(out, " reason=%s value=%llu\n", reason_names[reason],
				static_cast<unsigned long long>(value));
	}
}

constexpr cp_status_file files[] = {
	{.name = "status", .parts = state_parts, .write_part = write_state},
	{.name = "clients", .parts = CLIENT_LISTS, .write_part = write_client_list},
	{.name = "garden", .parts = 1 + CP_ROWS, .write_part = write_rules},
	{.name = "counters", .parts = CP_COUNTER_ROWS, .write_part = write_counts},
	{.name = "cache", .parts = ARECORD_BUCKETS, .write_part = write_cached_addresses},
};

} // namespace

constinit const cp_status_directory status_directory = {
	.name = "captive_portal",
	.mode = 0440,
	.files = files,
	.file_count = sizeof(files) / sizeof(files[0]),
};

} // namespace captive_portal
