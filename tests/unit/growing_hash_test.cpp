// SPDX-License-Identifier: GPL-2.0-only
#include "base/growing_hash.h"

#include <algorithm>
#include <list>
#include <memory>
#include <random>
#include <vector>

#include "base/keyed_hash.h"
#include "tests/support/host_test.h"

namespace captive_portal::test
{

namespace
{

// Looks at each entry that the table touches, so that tests can count them.
struct Entry {
	HashLinks<Entry> links;
	uint32_t hash;
	uint32_t key;
};

struct ByKey {
	using Entry = test::Entry;
	using Key = uint32_t;

	static inline uint64_t visits = 0;

	static HashLinks<Entry> &links(Entry &entry)
	{
		++visits;
		return entry.links;
	}
	static uint32_t hash(const Entry &entry) { return entry.hash; }
	static Key key(const Entry &entry) { return entry.key; }
};

constexpr HashSeed seed = {0x9e3779b97f4a7c15, 0xbf58476d1ce4e5b9, 0x94d049bb133111eb};
constexpr uint32_t segment_buckets = 512;

uint32_t hash_of(uint32_t key)
{
	return keyed_hash(seed, key, 0);
}

template <uint32_t segments> using Table = GrowingHash<ByKey, segments>;

class GrowingHash : public HostTest
{
protected:
	// True when there was room; the entry is inserted in any case.
	template <typename Table> bool insert(Table &table, Entry &entry)
	{
		typename Table::Room room = table.make_room();
		table.insert(entry, room);
		return static_cast<bool>(room);
	}
	// Entries with the keys first, first + 1 ...
	template <typename Table> std::vector<Entry> fill(Table &table, uint32_t count, uint32_t first = 0)
	{
		std::vector<Entry> entries(count);
		for (uint32_t i = 0; i < count; ++i) {
			entries[i] = {{}, hash_of(first + i), first + i};
			EXPECT_TRUE(insert(table, entries[i]));
		}
		return entries;
	}
};

TEST_F(GrowingHash, FindsNothingWhenEmpty)
{
	static Table<4> table;
	EXPECT_EQ(table.size(), 0u);
	EXPECT_EQ(table.find(7, hash_of(7)), nullptr);
	EXPECT_EQ(machine.memory.attempts(), 0u);
}

TEST_F(GrowingHash, AnswersAsAMultimapDoes)
{
	// Few hashes for many keys, and few keys for many entries, so that both rings and chains get long.
	static Table<8> table;
	std::mt19937 random(1);
	std::vector<std::unique_ptr<Entry>> all;
	std::vector<std::list<Entry *>> oldest_first(1500);
	for (uint32_t step = 0; step < 60'000; ++step) {
		const auto key = static_cast<uint32_t>(random() % oldest_first.size());
		const uint32_t hash = hash_of(key / 3);
		std::list<Entry *> &same = oldest_first[key];
		// Grows for a while and shrinks for a while.
		if (random() % 16 < (step / 5'000 % 2 == 0 ? 11u : 5u)) {
			all.push_back(std::make_unique<Entry>(Entry{{}, hash, key}));
			insert(table, *all.back());
			same.push_back(all.back().get());
		} else if (!same.empty()) {
			// The oldest, the youngest, or any between.
			const auto member = std::next(same.begin(), static_cast<ptrdiff_t>(random() % same.size()));
			table.remove(**member);
			// What is out of the table is nobody's business any more.
			**member = {{}, ~hash, ~key};
			same.erase(member);
		}
		const auto asked = static_cast<uint32_t>(random() % oldest_first.size());
		const std::list<Entry *> &expected = oldest_first[asked];
		ASSERT_EQ(table.find(asked, hash_of(asked / 3)), expected.empty() ? nullptr : expected.front()) << step;
	}
	uint32_t count = 0;
	for (std::list<Entry *> &same : oldest_first) {
		for (Entry *const entry : same) {
			ASSERT_EQ(table.find(entry->key, entry->hash), entry);
			table.remove(*entry);
			++count;
		}
	}
	EXPECT_GT(count, 1000u);
	EXPECT_EQ(table.size(), 0u);
	table.release();
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(GrowingHash, KeepsTheOrderOfEqualKeysThroughEverySplit)
{
	static Table<16> table;
	Entry twins[3] = {{{}, hash_of(42), 42}, {{}, hash_of(42), 42}, {{}, hash_of(42), 42}};
	for (Entry &twin : twins) {
		insert(table, twin);
	}
	std::vector<Entry> others = fill(table, 8'000, 1'000);
	for (Entry &twin : twins) {
		EXPECT_EQ(table.find(42, hash_of(42)), &twin);
		table.remove(twin);
	}
	EXPECT_EQ(table.find(42, hash_of(42)), nullptr);
	for (Entry &other : others) {
		ASSERT_EQ(table.find(other.key, other.hash), &other);
	}
	table.release();
}

TEST_F(GrowingHash, VisitsFewEntriesAtAnySize)
{
	constexpr uint32_t million = 1'000'000;
	static Table<2048> table;
	std::vector<Entry> entries(million);
	uint64_t longest_insert = 0;
	for (uint32_t i = 0; i < million; ++i) {
		entries[i] = {{}, hash_of(i), i};
		const uint64_t before = ByKey::visits;
		ASSERT_TRUE(insert(table, entries[i]));
		longest_insert = std::max(longest_insert, ByKey::visits - before);
	}
	EXPECT_LE(longest_insert, 40u);
	EXPECT_EQ(table.size(), million);
	// At most 8 bytes an entry, and the last segment.
	EXPECT_LE(machine.memory.attempts(), million / segment_buckets);

	uint64_t longest_find = 0;
	const uint64_t before_all = ByKey::visits;
	for (Entry &entry : entries) {
		const uint64_t before = ByKey::visits;
		ASSERT_EQ(table.find(entry.key, entry.hash), &entry);
		longest_find = std::max(longest_find, ByKey::visits - before);
	}
	EXPECT_LE(longest_find, 20u);
	// The links of the entries before the one that is found: half a one, for chains of one on average.
	EXPECT_LE(ByKey::visits - before_all, million * 3 / 5);
	for (Entry &entry : entries) {
		table.remove(entry);
	}
	EXPECT_EQ(table.size(), 0u);
	EXPECT_EQ(table.find(1, hash_of(1)), nullptr);
	table.release();
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(GrowingHash, IsNotSlowedByAFloodOfOneKey)
{
	static Table<16> table;
	constexpr uint32_t flood = 5'000;
	// All in one bucket for ever: the flooded key and the two around it.
	Entry before = {{}, hash_of(42), 41};
	Entry after = {{}, hash_of(42), 43};
	std::vector<Entry> flooded(flood, Entry{{}, hash_of(42), 42});
	insert(table, before);
	insert(table, flooded[0]);
	insert(table, after);
	for (uint32_t i = 1; i < flood; ++i) {
		const uint64_t visits = ByKey::visits;
		insert(table, flooded[i]);
		ASSERT_LE(ByKey::visits - visits, 30u);
	}
	const uint64_t visits = ByKey::visits;
	EXPECT_EQ(table.find(41, hash_of(42)), &before);
	EXPECT_EQ(table.find(43, hash_of(42)), &after);
	EXPECT_EQ(table.find(42, hash_of(42)), &flooded[0]);
	table.remove(before);
	table.remove(flooded[flood / 2]);
	table.remove(after);
	table.remove(flooded[flood - 1]);
	EXPECT_LE(ByKey::visits - visits, 60u);
	EXPECT_EQ(table.find(42, hash_of(42)), &flooded[0]);
	table.release();
}

TEST_F(GrowingHash, AsksForASegmentOnlyWhenOneIsDue)
{
	static Table<4> table;
	std::vector<Entry> first = fill(table, segment_buckets);
	EXPECT_EQ(machine.memory.attempts(), 0u);
	std::vector<Entry> second = fill(table, segment_buckets, segment_buckets);
	EXPECT_EQ(machine.memory.attempts(), 1u);
	EXPECT_EQ(machine.live_allocations().at(0).size, 4096u);
	// What was emptied and fills again has its segments already.
	for (Entry &entry : second) {
		table.remove(entry);
	}
	second = fill(table, segment_buckets, segment_buckets);
	EXPECT_EQ(machine.memory.attempts(), 1u);
	table.release();
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(GrowingHash, SaysWhenASegmentCannotBeHadAndWorksWithoutIt)
{
	static Table<4> table;
	std::vector<Entry> entries = fill(table, segment_buckets);
	Entry next = {{}, hash_of(600), 600};
	machine.memory.fail_all_allocations(true);
	EXPECT_FALSE(static_cast<bool>(table.make_room()));
	EXPECT_FALSE(insert(table, next));
	std::vector<Entry> more(700);
	for (uint32_t i = 0; i < more.size(); ++i) {
		more[i] = {{}, hash_of(1000 + i), 1000 + i};
		EXPECT_FALSE(insert(table, more[i]));
	}
	machine.memory.fail_all_allocations(false);
	// What growing has missed it makes up for, a bucket more at each insert.
	std::vector<Entry> others = fill(table, 800, 3000);
	EXPECT_EQ(machine.live_allocations().size(), 3u);
	EXPECT_EQ(table.find(600, hash_of(600)), &next);
	for (std::vector<Entry> *const some : {&entries, &more, &others}) {
		for (Entry &entry : *some) {
			ASSERT_EQ(table.find(entry.key, entry.hash), &entry);
		}
	}
	table.release();
}

TEST_F(GrowingHash, GivesRoomBackThatIsNotUsed)
{
	static Table<4> table;
	std::vector<Entry> entries = fill(table, segment_buckets);
	{
		const auto room = table.make_room();
		EXPECT_TRUE(static_cast<bool>(room));
		EXPECT_EQ(machine.live_allocations().size(), 1u);
	}
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(GrowingHash, KeepsTheSegmentOfTheFirstOfTwoInserters)
{
	static Table<4> table;
	std::vector<Entry> entries = fill(table, segment_buckets);
	Entry one = {{}, hash_of(600), 600};
	Entry other = {{}, hash_of(601), 601};
	{
		auto first = table.make_room();
		auto second = table.make_room();
		EXPECT_EQ(machine.live_allocations().size(), 2u);
		table.insert(one, first);
		table.insert(other, second);
	}
	EXPECT_EQ(machine.live_allocations().size(), 1u);
	EXPECT_EQ(table.find(600, hash_of(600)), &one);
	EXPECT_EQ(table.find(601, hash_of(601)), &other);
	table.release();
}

TEST_F(GrowingHash, StopsGrowingWhenItsDirectoryIsFull)
{
	static Table<2> table;
	std::vector<Entry> entries = fill(table, 10 * segment_buckets);
	EXPECT_EQ(machine.memory.attempts(), 1u);
	for (Entry &entry : entries) {
		ASSERT_EQ(table.find(entry.key, entry.hash), &entry);
	}
	table.release();
	EXPECT_EQ(table.size(), 0u);
	EXPECT_EQ(table.find(1, hash_of(1)), nullptr);
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(GrowingHash, StartsAnewAfterItsRelease)
{
	static Table<4> table;
	std::vector<Entry> entries = fill(table, 3 * segment_buckets);
	table.release();
	std::vector<Entry> again = fill(table, 3 * segment_buckets);
	for (Entry &entry : again) {
		ASSERT_EQ(table.find(entry.key, entry.hash), &entry);
	}
	table.release();
}

TEST(KeyedHash, SpreadsNeighboursEvenly)
{
	// 4096 ports of one client, and 4096 addresses with one port: on 4096 buckets no pile, whichever half changes.
	for (const bool low : {false, true}) {
		std::vector<unsigned> buckets(4096);
		for (uint32_t i = 0; i < 4096; ++i) {
			const uint32_t hash = low ? keyed_hash(seed, 0x0300c0a8, i) : keyed_hash(seed, i, 0x5000);
			++buckets[hash & 4095];
		}
		EXPECT_LE(*std::ranges::max_element(buckets), 12u);
	}
}

TEST(KeyedHash, DependsOnTheSeed)
{
	HashSeed other = seed;
	other.second ^= 0x10;
	EXPECT_NE(keyed_hash(seed, 1, 2), keyed_hash(other, 1, 2));
	EXPECT_NE(keyed_hash(seed, 1, 2), keyed_hash(seed, 2, 1));
}

} // namespace

} // namespace captive_portal::test
