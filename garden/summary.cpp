// SPDX-License-Identifier: GPL-2.0-only
#include "garden/summary.h"

#include "base/debug_level.h"
#include "base/interface_name.h"
#include "base/lock.h"
#include "base/scan_decimal.h"
#include "garden/arecord_table.h"
#include "garden/matched_interfaces.h"

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
constexpr size_t line_size = 256;

// Where lines are formatted: one for a whole walk, stacks are small.
using Line = char[line_size];

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

// What a listing shows, decoded from the target.
struct Selection {
	// Mask that an entry must meet.
	uint32_t mask = ~0U;
	bool by_address = false;
	Ipv4Address address = {};
	uint32_t first_bucket = 0;
	uint32_t end_bucket = ARECORD_BUCKETS;
};

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

// One walk's output. It counts all that a reader with room for `room` bytes would get; it stores only where there is a
// buffer. So the same walk first measures and then, under the same lock, fills.
class Listing
{
public:
	Listing(char *buffer, size_t room) : buffer_(buffer), room_(room) {}

	[[nodiscard]] size_t produced() const { return produced_; }
	[[nodiscard]] size_t room() const { return room_; }
	[[nodiscard]] bool stores() const { return buffer_ != nullptr; }

	// Adds the line whole, or leaves it out and says so.
	[[nodiscard]] bool add(const char *line, size_t length)
	{
		if (length > room_) {
			return false;
		}
		take(line, length);
		return true;
	}

	// Adds what there is room for.
	void add_cut(const char *line, size_t length) { take(line, length < room_ ? length : room_); }

private:
	void take(const char *line, size_t length)
	{
		if (buffer_ != nullptr) {
			__builtin_memcpy(buffer_ + produced_, line, length);
		}
		produced_ += length;
		room_ -= length;
	}

	char *buffer_;
	size_t room_;
	size_t produced_ = 0;
};

[[nodiscard]] bool is_selected(const dns_arecord &entry, const Selection &selection)
{
	return (entry.is_match_wg & selection.mask) != 0 && entry.is_dump == 0 &&
	       (!selection.by_address || entry.ip == selection.address.raw);
}

// False when the room ends inside the entry, which then stays unmarked: the next listing repeats its first lines.
[[nodiscard]] bool list_entry(Listing &listing, Line &line, uint32_t bucket, dns_arecord &entry)
{
	char address[IPV4_TEXT_SIZE];
	format_ipv4(address, entry.ip);
	if (!listing.add(line, cp_format(line, sizeof(line), "[%d]IP=%s, timeout=%lu\n", static_cast<int32_t>(bucket),
					 address, static_cast<unsigned long>(entry.timeout)))) {
		return false;
	}
	char interfaces[MATCHED_INTERFACES_SIZE];
	format_matched_interfaces(interfaces, entry.is_match_wg);
	if (!listing.add(line, cp_format(line, sizeof(line), "  match walled garden:%s\n", interfaces))) {
		return false;
	}
	for (fqdn_node &node : entry.fqdn_list) {
		if (node.is_dump != 0) {
			continue;
		}
		if (!listing.add(line, cp_format(line, sizeof(line), "  fqdn = %s\n", node.fqdn))) {
			return false;
		}
		if (listing.stores()) {
			node.is_dump = 1;
		}
	}
	if (listing.stores()) {
		entry.is_dump = 1;
	}
	return true;
}

[[nodiscard]] bool list_entries(Listing &listing, Line &line, const Selection &selection)
{
	for (uint32_t bucket = selection.first_bucket; bucket < selection.end_bucket; ++bucket) {
		for (dns_arecord &entry : dns_aRecord[bucket]) {
			if (is_selected(entry, selection) && !list_entry(listing, line, bucket, entry)) {
				return false;
			}
		}
	}
	return true;
}

// Called with dns_list_lock held.
void write_listing(Listing &listing)
{
	constexpr char finished[] = "Finished...\n";
	Line line;
	const size_t header_length =
		cp_format(line, sizeof(line), "Captive Portal DNS A Record Info, target=%s\n", summary_target);
	listing.add_cut(line, header_length);
	if (list_entries(listing, line, decode_target(text_of_field(summary_target)))) {
		// Silently left out where there is no room for it.
		static_cast<void>(listing.add(finished, sizeof(finished) - 1));
	}
}

struct Measured {
	size_t produced;
	size_t room;
};

// Fills the buffer when the listing fits in it; otherwise only says how large it would be, and marks nothing.
[[nodiscard]] Measured list_if_it_fits(char *buffer, size_t capacity, size_t length)
{
	const LockGuard guard(Lock::dns_list);
	Listing measured(nullptr, length);
	write_listing(measured);
	if (measured.produced() <= capacity) {
		Listing stored(buffer, length);
		write_listing(stored);
	}
	return {measured.produced(), measured.room()};
}

class LargeBuffer
{
public:
	explicit LargeBuffer(size_t size) : memory_(static_cast<char *>(cp_alloc_large(size))) {}
	~LargeBuffer() { cp_free_large(memory_); }
	LargeBuffer(const LargeBuffer &) = delete;
	LargeBuffer &operator=(const LargeBuffer &) = delete;

	[[nodiscard]] char *get() const { return memory_; }

private:
	char *memory_;
};

// The cache may grow between two tries.
constexpr size_t capacity_for(size_t produced, size_t length)
{
	const size_t generous = produced + produced / 4 + line_size;
	return generous < length ? generous : length;
}

void log_read(const Measured &listed)
{
	if (debug_level_reaches(3)) {
		cp_log(CP_LOG_DEBUG, "%s [%d]: total_read=%zu, len=%zu\n", "summary_read", __LINE__, listed.produced,
		       listed.room);
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

// Selects, and makes every entry and every name listable again.
void select_target(const WrittenText &written)
{
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
	Measured listed = list_if_it_fits(nullptr, 0, length);
	for (size_t capacity = 0; listed.produced > capacity;) {
		capacity = capacity_for(listed.produced, length);
		const LargeBuffer copy(capacity);
		if (copy.get() == nullptr) {
			return no_memory;
		}
		listed = list_if_it_fits(copy.get(), capacity, length);
		if (listed.produced <= capacity) {
			// What cannot be written there was listed all the same.
			static_cast<void>(cp_copy_to_user(buffer, copy.get(), listed.produced));
		}
	}
	log_read(listed);
	*position = static_cast<int64_t>(listed.produced);
	return static_cast<long>(listed.produced);
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
