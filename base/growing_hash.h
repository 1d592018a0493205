// SPDX-License-Identifier: GPL-2.0-only
// A hash table that finds entries which are kept elsewhere, in ordered lists. It grows one bucket at a time (linear
// hashing), so no single operation pays for the table's size.
//
// - An entry carries its links and its 32-bit hash; the table owns neither entries nor keys. Hashes must come from
//   base/keyed_hash.h or its like: who chooses the keys must not be able to choose the chains.
// - A chain holds one entry of each key, the oldest; younger ones of the same key hang in a ring behind it. So a lookup
//   finds the oldest, and a flood of one key makes no other key's operations longer. Growing keeps each ring as it is.
// - Each insert splits as many buckets as keep the table at one entry a bucket, two at most. A bucket is one pointer: 8
//   bytes an entry, and the last segment.
// - The first segment is part of the table; the others are a page each, asked for by make_room() and kept until
//   release(). At `segments` segments the directory is full and chains only get longer: n entries then make chains of
//   n / (segments * 512).
//
// No lock: the caller holds its own around everything but make_room(). In a zeroed table all is empty.
#pragma once

#include "base/atomic_word.h"
#include "base/memory.h"

namespace captive_portal
{

template <typename Entry> struct HashLinks {
	Entry *chain;   // next key of the bucket; unused in an entry that is not its key's oldest
	Entry *younger; // ring of the entries of one key
	Entry *older;
};

// `Traits` has the types Entry and Key, and the static functions
//	HashLinks<Entry> &links(Entry &)
//	uint32_t hash(const Entry &)		the same as long as the entry is in the table
//	Key key(const Entry &)			compared with ==; asked for only where hashes are equal
template <typename Traits, uint32_t segments> class GrowingHash
{
public:
	using Entry = typename Traits::Entry;
	using Key = typename Traits::Key;

	static constexpr size_t segment_bytes = 4096;
	static constexpr uint32_t buckets_per_segment = segment_bytes / sizeof(Entry *);
	static constexpr uint32_t most_buckets = segments * buckets_per_segment;
	static_assert(segments != 0 && (segments & (segments - 1)) == 0, "the last doubling must end with a segment");

	// Memory for one more insert; given back when it is not used.
	class Room
	{
	public:
		// False when a segment is due and cannot be had. An insert then still succeeds, into a longer chain.
		[[nodiscard]] explicit operator bool() const { return granted_; }

		explicit Room(bool due)
		    : segment_(due ? cp_zalloc_atomic(segment_bytes) : nullptr), granted_(!due || segment_ != nullptr)
		{
		}
		~Room()
		{
			if (segment_ != nullptr) {
				cp_free(segment_);
			}
		}
		Room(const Room &) = delete;
		Room &operator=(const Room &) = delete;

	private:
		friend class GrowingHash;
		void *segment_;
		bool granted_;
	};

	// Asks for the segment that the next insert would need, if any. With or without the caller's lock: when another
	// insert comes in between, growing waits for the next room, or the segment is given back.
	[[nodiscard]] Room make_room() const
	{
		const uint32_t grown = load_word(grown_);
		return Room(load_word(entries_) >= first_buckets + grown && is_segment_due(grown));
	}

	// The oldest entry of the key, or null.
	[[nodiscard]] Entry *find(const Key &key, uint32_t hash) const
	{
		for (Entry *entry = *bucket(hash); entry != nullptr; entry = Traits::links(*entry).chain) {
			if (Traits::hash(*entry) == hash && Traits::key(*entry) == key) {
				return entry;
			}
		}
		return nullptr;
	}

	// Makes the entry its key's youngest. It is not in the table; the caller keeps it, and its key and hash as they
	// are, until it is removed.
	void insert(Entry &entry, Room &room)
	{
		HashLinks<Entry> &links = Traits::links(entry);
		const uint32_t hash = Traits::hash(entry);
		Entry *const oldest = find(Traits::key(entry), hash);
		if (oldest != nullptr) {
			HashLinks<Entry> &oldest_links = Traits::links(*oldest);
			links = {nullptr, oldest, oldest_links.older};
			Traits::links(*oldest_links.older).younger = &entry;
			oldest_links.older = &entry;
		} else {
			Entry **const first = bucket(hash);
			links = {*first, &entry, &entry};
			*first = &entry;
		}
		store_word(entries_, entries_ + 1);
		for (unsigned splits = 0; splits < 2 && entries_ > first_buckets + grown_ && grow(room); ++splits) {
		}
	}

	// Takes out an entry that is in the table.
	void remove(Entry &entry)
	{
		HashLinks<Entry> &links = Traits::links(entry);
		const bool alone = links.younger == &entry;
		for (Entry **link = bucket(Traits::hash(entry)); *link != nullptr;
		     link = &Traits::links(**link).chain) {
			if (*link == &entry) {
				if (!alone) {
					Traits::links(*links.younger).chain = links.chain;
				}
				*link = alone ? links.chain : links.younger;
				break;
			}
		}
		Traits::links(*links.younger).older = links.older;
		Traits::links(*links.older).younger = links.younger;
		store_word(entries_, entries_ - 1);
	}

	[[nodiscard]] uint32_t size() const { return load_word(entries_); }

	// Forgets every entry and frees the segments. Nobody else uses the table; entries are not touched.
	void release()
	{
		for (Entry **&segment : further_) {
			cp_free(segment);
			segment = nullptr;
		}
		for (Entry *&first : first_) {
			first = nullptr;
		}
		store_word(entries_, 0U);
		store_word(grown_, 0U);
	}

private:
	static constexpr uint32_t first_buckets = buckets_per_segment;

	// Whether the table, grown by so many buckets, needs a segment for the next.
	[[nodiscard]] bool is_segment_due(uint32_t grown) const
	{
		return grown % buckets_per_segment == 0 && first_buckets + grown < most_buckets &&
		       load_word(further_[grown / buckets_per_segment]) == nullptr;
	}

	[[nodiscard]] Entry **bucket_at(uint32_t number) const
	{
		Entry **const segment = number < first_buckets ? const_cast<Entry **>(first_) :
								 further_[number / buckets_per_segment - 1];
		return &segment[number % buckets_per_segment];
	}

	// With b buckets, those below b minus the largest power of two in it, and their partners above, are split: one bit
	// more of the hash tells the two apart.
	[[nodiscard]] Entry **bucket(uint32_t hash) const
	{
		const uint32_t buckets = first_buckets + grown_;
		const uint32_t mask = mask_of(buckets);
		const uint32_t number = hash & mask;
		return bucket_at(number < buckets ? number : hash & (mask >> 1));
	}

	// The least 2^n - 1 that is at least `buckets`.
	[[nodiscard]] static constexpr uint32_t mask_of(uint32_t buckets)
	{
		return ~uint32_t{0} >> __builtin_clz(buckets);
	}

	// Splits one bucket; false when there is no segment for its partner.
	bool grow(Room &room)
	{
		if (first_buckets + grown_ >= most_buckets) {
			return false;
		}
		if (is_segment_due(grown_)) {
			if (room.segment_ == nullptr) {
				return false;
			}
			store_word(further_[grown_ / buckets_per_segment], static_cast<Entry **>(room.segment_));
			room.segment_ = nullptr;
		}
		const uint32_t partner = first_buckets + grown_;
		const uint32_t bit = (mask_of(partner) >> 1) + 1;
		Entry **stay = bucket_at(partner - bit);
		Entry **move = bucket_at(partner);
		for (Entry *entry = *stay; entry != nullptr; entry = Traits::links(*entry).chain) {
			Entry **&end = (Traits::hash(*entry) & bit) != 0 ? move : stay;
			*end = entry;
			end = &Traits::links(*entry).chain;
		}
		*stay = nullptr;
		*move = nullptr;
		store_word(grown_, grown_ + 1);
		return true;
	}

	uint32_t entries_ = 0;
	uint32_t grown_ = 0; // buckets beyond the first segment's
	Entry *first_[first_buckets] = {};
	Entry **further_[segments > 1 ? segments - 1 : 1] = {};
};

} // namespace captive_portal
