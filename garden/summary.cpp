// SPDX-License-Identifier: GPL-2.0-only
#include "garden/summary.h"

#include "base/debug_level.h"
#include "base/interface_name.h"
#include "base/lock.h"
#include "base/mutex.h"
#include "base/scan_decimal.h"
#include "garden/arecord_table.h"
#include "garden/report.h"

namespace captive_portal
{

constinit char summary_target[SUMMARY_TARGET_SIZE] = "all";

constinit const cp_proc_file summary_file = {.directory = "cp_dns_aRecord", .name = "summary", .mode = 0444};

namespace
{

constexpr long invalid_argument = -22;
constexpr long no_memory = -12;

constexpr Text all_target{"all", 3};
constexpr Text mirel_target{"mirel", 5};
constexpr Text interface_prefix{"wlan", 4};

constexpr uint32_t octet_limit = 255;

bool contains_dot(Text text)
{
	for (size_t i = 0; i < text.length; ++i) {
		if (text.characters[i] == '.') {
			return true;
		}
	}
	return false;
}

// What "%d.%d.%d.%d" finds.
struct ScannedAddress {
	Ipv4Address address;
	bool in_range;
};

// Missing when fewer than four numbers are there; text behind the fourth is ignored.
Field<ScannedAddress> scan_address(Text text)
{
	uint32_t address = 0;
	bool in_range = true;
	size_t position = 0;
	for (int i = 0; i < 4; ++i) {
		if (i > 0) {
			if (text.at(position) != '.') {
				return {};
			}
			++position;
		}
		const Field<uint32_t> number = scan_decimal(text, position);
		if (!number.has_value()) {
			return {};
		}
		in_range = in_range && number.value() <= octet_limit;
		address = address << 8 | (number.value() & octet_limit);
	}
	return ScannedAddress{be32::from_host(address), in_range};
}

Selection decode_target(Text target)
{
	Selection selection;
	if (target == all_target) {
		return selection;
	}
	if (target == mirel_target) {
		selection.mask = 1U << CP_ROW_MIREL;
	} else if (contains_dot(target)) {
		const Field<ScannedAddress> scanned = scan_address(target);
		selection.by_address = true;
		// A name with a dot behind it was accepted as a name; as an address it selects nothing.
		if (!scanned.has_value()) {
			selection.end_bucket = 0;
			return selection;
		}
		selection.address = scanned.value().address;
		selection.first_bucket = arecord_bucket(selection.address);
		selection.end_bucket = selection.first_bucket + 1;
	} else {
		const Field<uint32_t> index = interface_index_of_name(target);
		selection.mask = index.has_value() ? 1U << index.value() : 0;
	}
	return selection;
}

// Collects what a reader with room for `length` bytes gets. False when there is no memory for it: nothing is marked then.
// Readers come one at a time, and no write comes in between, so that a report shows one selection and each entry once.
// The mutex is let go before the copy to the reader, which may wait.
[[nodiscard]] bool collect(Report &report, size_t length)
{
	const MutexGuard guard(Mutex::reports);
	return report.collect(decode_target(text_of_field(summary_target)), summary_target, length);
}

void log_read(size_t produced, size_t room)
{
	if (debug_level_reaches(3)) {
		cp_log(CP_LOG_DEBUG, "%s [%d]: total_read=%zu, len=%zu\n", "summary_read", __LINE__, produced, room);
	}
}

// The text of a write, NUL-terminated.
struct WrittenText {
	char characters[SUMMARY_TARGET_SIZE];
};

// Says why the text selects nothing; the line's number is the place of the report.
[[nodiscard]] bool is_valid_target(const WrittenText &written)
{
	const Text text = text_of_field(written.characters);
	if (starts_with(text, interface_prefix)) {
		if (!scan_interface_name(text).has_value()) {
			cp_log(CP_LOG_ERR, "%s [%d]: sscanf iface(%s) failed!\n", "summary_write", __LINE__,
			       written.characters);
			return false;
		}
		// Only the combined index is looked at.
		if (!interface_index_of_name(text).has_value()) {
			cp_log(CP_LOG_ERR, "%s [%d]: iface(%s) is wrong!\n", "summary_write", __LINE__,
			       written.characters);
			return false;
		}
		return true;
	}
	if (const Field<ScannedAddress> scanned = scan_address(text); scanned.has_value()) {
		if (!scanned.value().in_range) {
			cp_log(CP_LOG_ERR, "%s [%d]: ip address(%s) is wrong!\n", "summary_write", __LINE__,
			       written.characters);
		}
		return scanned.value().in_range;
	}
	if (text == all_target || text == mirel_target) {
		return true;
	}
	cp_log(CP_LOG_ERR, "%s [%d]: iface(%s) is wrong!\n", "summary_write", __LINE__, written.characters);
	return false;
}

// Selects, and makes every entry and every name listable again. Waits for a report that is being collected.
void select_target(const WrittenText &written)
{
	const MutexGuard no_report(Mutex::reports);
	const LockGuard guard(Lock::dns_list);
	store_text(summary_target, text_of_field(written.characters));
	DumpMark::clear_all();
}

} // namespace

} // namespace captive_portal

using namespace captive_portal;

long captive_portal_summary_read(cp_user_address buffer, size_t length, int64_t *position)
{
	if (*position > 0) {
		return 0;
	}
	Report report;
	if (!collect(report, length)) {
		return no_memory;
	}
	if (report.size() != 0) {
		// What cannot be written there was listed all the same.
		static_cast<void>(cp_copy_to_user(buffer, report.text(), report.size()));
	}
	log_read(report.size(), length - report.size());
	*position = static_cast<int64_t>(report.size());
	return static_cast<long>(report.size());
}

long captive_portal_summary_write(cp_user_address buffer, size_t count)
{
	WrittenText written = {};
	constexpr size_t longest = sizeof(written.characters) - 1;
	// What cannot be read counts as NULs.
	static_cast<void>(cp_copy_from_user(written.characters, buffer, count < longest ? count : longest));
	if (count > longest) {
		cp_log(CP_LOG_ERR, "%s [%d]: iface(%s) is wrong!\n", "summary_write", __LINE__, written.characters);
		return invalid_argument;
	}
	if (!is_valid_target(written)) {
		return invalid_argument;
	}
	select_target(written);
	if (debug_level_reaches(3)) {
		cp_log(CP_LOG_DEBUG, "%s [%d]: summary_target:%s\n", "summary_write", __LINE__, written.characters);
	}
	return static_cast<long>(count);
}
