// SPDX-License-Identifier: GPL-2.0-only
// Asks changed rules about the cached names.
#include "base/atomic_word.h"
#include "garden/bucket_walk.h"
#include "garden/walled_garden.h"

namespace captive_portal
{

namespace
{

// Names that are judged in one hold of the lock, so that a full cache does not stop the network. Whoever chooses the
// addresses of answers can file them all in one bucket, and give one of them names without end.
constexpr uint32_t names_per_hold = 32;

// Which rows a refresh is for.
class RowSet
{
public:
	static RowSet one(uint32_t iface) { return {arecord_mask(iface), iface}; }
	static RowSet all() { return {(1U << CP_ROWS) - 1, CP_ROWS}; }

	[[nodiscard]] uint32_t mask() const { return mask_; }
	// Those of the rows that have the name in their gardens.
	[[nodiscard]] uint32_t that_permit(Text name) const
	{
		if (row_ == CP_ROWS) {
			return match_garden_rows(name);
		}
		return match_garden_list(GardenQuery::domain, {}, &name, row_) ? mask_ : 0;
	}

private:
	RowSet(uint32_t mask, uint32_t row) : mask_(mask), row_(row) {}

	uint32_t mask_;
	uint32_t row_; // CP_ROWS: all
};

// Judges names of the walk's entry, at most `left` of them, and marks the entry when that was all. False when names are
// left. The entry is then marked as it was: nobody meets one that is judged in part.
[[nodiscard]] bool judge_entry(BucketWalk &walk, const RowSet &rows, uint32_t &left)
{
	dns_arecord &entry = *walk.entry;
	const uint32_t version = load_word(rules_version);
	if (walk.name == nullptr || walk.rules != version) {
		// What was found before the rules changed counts no more.
		walk.stand_at(&entry);
		walk.name = entry.fqdn_list.first();
		walk.rules = version;
	}
	while (walk.name != nullptr && walk.found != rows.mask()) {
		if (left == 0) {
			return false;
		}
		--left;
		walk.found |= rows.that_permit(name_of(*walk.name));
		walk.name = walk.name->link.next;
	}
	entry.is_match_wg = (entry.is_match_wg & ~rows.mask()) | walk.found;
	return true;
}

// One hold of the lock. Two refreshes at once: the later one to reach an entry sees the rules of both.
void refresh_entries(BucketWalk &walk, const RowSet &rows)
{
	uint32_t left = names_per_hold;
	while (walk.entry != nullptr && left != 0 && judge_entry(walk, rows, left)) {
		walk.stand_at(walk.entry->hash_link.next);
	}
}

void refresh(const RowSet &rows)
{
	walk_buckets(0, ARECORD_BUCKETS, [&rows](BucketWalk &walk) {
		refresh_entries(walk, rows);
		return true;
	});
}

} // namespace

void update_dns_aRecord_list(uint32_t iface)
{
	refresh(RowSet::one(iface));
}

void update_dns_aRecord_lists()
{
	if (!match_attempts_are_seen()) {
		refresh(RowSet::all());
		return;
	}
	for (uint32_t iface = 0; iface < CP_ROWS; ++iface) {
		update_dns_aRecord_list(iface);
	}
}

} // namespace captive_portal
