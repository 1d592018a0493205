// SPDX-License-Identifier: GPL-2.0-only
#include "garden/report.h"

#include "garden/bucket_walk.h"
#include "garden/matched_interfaces.h"

namespace captive_portal
{

namespace
{

constexpr char finished[] = "Finished...\n";

// Longer lines are cut.
constexpr size_t line_size = 256;

constexpr size_t longest_first_lines =
	sizeof("[1023]IP=255.255.255.255, timeout=18446744073709551615\n  match walled garden:\n") +
	MATCHED_INTERFACES_SIZE;
constexpr size_t name_line_without_name = sizeof("  fqdn = \n") - 1;

// Entries and names that are visited in one hold of the lock, so that a full cache does not stop the network.
constexpr uint32_t visits_per_hold = 64;

// One hold of a pass, from where the walk stands in its bucket. The pass is asked whether it wants an entry, and then told
// of the entry's begin, of its names that are due, and of its end. False when it wants no more.
template <typename Pass> [[nodiscard]] bool visit_entries(Pass &pass, BucketWalk &walk)
{
	enum : uint32_t { untouched, begun };
	uint32_t left = visits_per_hold;
	while (walk.entry != nullptr && left != 0) {
		--left;
		dns_arecord &entry = *walk.entry;
		dns_arecord *const next = entry.hash_link.next;
		if (walk.found == untouched) {
			if (!pass.wants(entry)) {
				walk.stand_at(next);
				continue;
			}
			if (!pass.begin(entry)) {
				return false;
			}
			walk.found = begun;
			walk.name = entry.fqdn_list.first();
		}
		for (; walk.name != nullptr; walk.name = walk.name->link.next) {
			if (left == 0) {
				return true;
			}
			--left;
			if (walk.name->is_dump.is_due() && !pass.add(*walk.name)) {
				return false;
			}
		}
		pass.end(entry);
		walk.stand_at(next);
	}
	return true;
}

template <typename Pass> void run(Pass &pass, const Selection &selection)
{
	walk_buckets(selection.first_bucket, selection.end_bucket,
		     [&pass](BucketWalk &walk) { return visit_entries(pass, walk); });
}

[[nodiscard]] bool may_be_listed(const dns_arecord &entry, const Selection &selection)
{
	return entry.is_dump.is_due() && (!selection.by_address || entry.ip == selection.address.raw);
}

// No listing that began before this pass gets longer, whatever is done to the cache while the two run: entries and names
// that come are not due. Masks may change, so they are not looked at.
class Bound
{
public:
	Bound(const Selection &selection, size_t length) : selection_(selection), length_(length) {}

	[[nodiscard]] bool wants(const dns_arecord &entry) const { return may_be_listed(entry, selection_); }
	[[nodiscard]] bool begin(const dns_arecord &) { return add(longest_first_lines); }
	[[nodiscard]] bool add(const fqdn_node &node) { return add(name_line_without_name + node.length); }
	void end(const dns_arecord &) {}

	// No more than the reader has room for.
	[[nodiscard]] size_t capacity() const { return size_ < length_ ? size_ : length_; }

private:
	// False when more makes no difference.
	[[nodiscard]] bool add(size_t size)
	{
		size_ += size;
		return size_ < length_;
	}

	const Selection &selection_;
	size_t length_;
	size_t size_ = line_size + sizeof(finished);
};

// Lines are formatted where they are to stand, so the text has room for one line behind its capacity.
class Listing
{
public:
	Listing(const Selection &selection, char *text, size_t capacity)
	    : selection_(selection), text_(text), capacity_(capacity)
	{
	}

	void add_header(const char *target)
	{
		const size_t length =
			cp_format(end_of_text(), line_size, "Captive Portal DNS A Record Info, target=%s\n", target);
		produced_ = length < capacity_ ? length : capacity_;
	}

	[[nodiscard]] bool wants(const dns_arecord &entry)
	{
		leave_out_what_went();
		return (entry.is_match_wg & selection_.mask) != 0 && may_be_listed(entry, selection_);
	}
	[[nodiscard]] bool begin(const dns_arecord &entry);
	[[nodiscard]] bool add(fqdn_node &node);
	void end(dns_arecord &entry);

	// After the last entry; gives the size.
	[[nodiscard]] size_t finish();

private:
	[[nodiscard]] char *end_of_text() { return text_ + produced_; }
	// Keeps the line that has been formatted at the end of the text. Where there is no room for all of it the listing ends,
	// in the middle of an entry: that one stays unmarked, and the next listing repeats its first lines.
	[[nodiscard]] bool keep(size_t length)
	{
		if (length > capacity_ - produced_) {
			stopped_ = true;
			return false;
		}
		produced_ += length;
		return true;
	}
	// An entry that expired between two holds is listed whole or not at all.
	void leave_out_what_went()
	{
		if (is_in_entry_) {
			produced_ = start_of_entry_;
			is_in_entry_ = false;
		}
	}

	const Selection &selection_;
	char *text_;
	size_t capacity_;
	size_t produced_ = 0;
	size_t start_of_entry_ = 0;
	bool is_in_entry_ = false;
	bool stopped_ = false;
};

bool Listing::begin(const dns_arecord &entry)
{
	is_in_entry_ = true;
	start_of_entry_ = produced_;
	char address[IPV4_TEXT_SIZE];
	format_ipv4(address, entry.ip);
	if (!keep(cp_format(end_of_text(), line_size, "[%d]IP=%s, timeout=%lu\n", static_cast<int32_t>(entry.bucket),
			    address, static_cast<unsigned long>(entry.timeout)))) {
		return false;
	}
	char interfaces[MATCHED_INTERFACES_SIZE];
	format_matched_interfaces(interfaces, entry.is_match_wg);
	return keep(cp_format(end_of_text(), line_size, "  match walled garden:%s\n", interfaces));
}

bool Listing::add(fqdn_node &node)
{
	if (!keep(cp_format(end_of_text(), line_size, "  fqdn = %s\n", node.fqdn))) {
		return false;
	}
	node.is_dump = 1;
	return true;
}

void Listing::end(dns_arecord &entry)
{
	entry.is_dump = 1;
	is_in_entry_ = false;
}

size_t Listing::finish()
{
	if (!stopped_) {
		leave_out_what_went();
		// Silently left out where there is no room for it.
		static_cast<void>(keep(cp_format(end_of_text(), line_size, finished)));
	}
	return produced_;
}

void begin_listing()
{
	const LockGuard guard(Lock::dns_list);
	DumpMark::begin_listing();
}

} // namespace

Report::~Report()
{
	cp_free_large(text_);
}

bool Report::collect(const Selection &selection, const char *target, size_t length)
{
	if (length == 0) {
		return true;
	}
	begin_listing();
	Bound bound(selection, length);
	run(bound, selection);
	text_ = static_cast<char *>(cp_alloc_large(bound.capacity() + line_size));
	if (text_ == nullptr) {
		return false;
	}
	Listing listing(selection, text_, bound.capacity());
	listing.add_header(target);
	run(listing, selection);
	size_ = listing.finish();
	return true;
}

} // namespace captive_portal
