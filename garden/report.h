// SPDX-License-Identifier: GPL-2.0-only
// What a reader of the proc file gets: the entries of the A-record cache that are selected and have not been shown yet.
#pragma once

#include "garden/arecord_cache.h"

namespace captive_portal
{

// What a report lists.
struct Selection {
	// Mask that an entry must meet.
	uint32_t mask = ~0U;
	bool by_address = false;
	Ipv4Address address = {};
	uint32_t first_bucket = 0;
	uint32_t end_bucket = ARECORD_BUCKETS;
};

// The text of a report, in memory of its own.
class Report
{
public:
	Report() = default;
	~Report();
	Report(const Report &) = delete;
	Report &operator=(const Report &) = delete;

	// Lists for a reader with room for `length` bytes, and marks what it has listed. `target` is what the first line
	// says. False when there is no memory; nothing is listed or marked then. Called once, with the mutex of reports held.
	// Takes dns_list_lock anew for every few entries: what comes to the cache meanwhile is left out.
	[[nodiscard]] bool collect(const Selection &selection, const char *target, size_t length);

	[[nodiscard]] const char *text() const { return text_; }
	[[nodiscard]] size_t size() const { return size_; }

private:
	char *text_ = nullptr;
	size_t size_ = 0;
};

} // namespace captive_portal
