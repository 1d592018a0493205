// SPDX-License-Identifier: GPL-2.0-only
#include "portal/connections.h"

#include <atomic>
#include <thread>

#include "base/lock.h"
#include "portal/interface_table.h"
#include "tests/support/host_test.h"
#include "tests/unit/portal_case.h"

namespace captive_portal::test
{

namespace
{

constexpr Mac server_mac = {0x02, 0x22, 0, 0, 0, 0xfe};
constexpr Mac other_mac = {0x02, 0x22, 0, 0, 0, 0xfd};

constexpr Connection first = {3, ipv4(192, 168, 1, 11), 51000, ipv4(203, 0, 113, 10), 80, server_mac};
constexpr Connection second = {3, ipv4(192, 168, 1, 11), 51001, ipv4(203, 0, 113, 10), 443, server_mac};
constexpr Connection third = {3, ipv4(192, 168, 1, 12), 51000, ipv4(198, 51, 100, 20), 80, other_mac};

Client client_of(const Connection &connection)
{
	return {connection.client, be16::from_host(connection.client_port)};
}

class Connections : public HostTest
{
protected:
	void SetUp() override { load_module(); }

	// Removes the client's first entry in the row; false when there is none.
	bool remove(uint32_t row, const Client &client)
	{
		const LockGuard guard(Lock::change_ip_port);
		table_list_entry *const entry = find_connection(row, client);
		if (entry == nullptr) {
			return false;
		}
		remove_connection(*entry);
		return true;
	}
};

TEST_F(Connections, AreAppendedWithAllTheirFields)
{
	record(first);
	record(second);
	record(third);
	EXPECT_EQ(connections(), (std::vector{first, second, third}));
}

TEST_F(Connections, AreKeptByRow)
{
	Connection elsewhere = second;
	elsewhere.row = 27;
	record(elsewhere);
	record(first);
	EXPECT_EQ(connections(), (std::vector{first, elsewhere}));
	EXPECT_FALSE(remove(4, client_of(first)));
	EXPECT_FALSE(remove(27, client_of(first)));
	EXPECT_TRUE(remove(3, client_of(first)));
	EXPECT_EQ(connections(), std::vector{elsewhere});
}

TEST_F(Connections, AreNotRecordedWithoutMemory)
{
	record(first);
	machine.memory.fail_allocation(1);
	record(second);
	EXPECT_EQ(connections(), std::vector{first});
	record(third);
	EXPECT_EQ(connections(), (std::vector{first, third}));
}

TEST_F(Connections, TakeOneAllocationEachAndTheLockOnce)
{
	const uint64_t attempts = machine.memory.attempts();
	const uint64_t holds = machine.locks.acquisitions(CP_LOCK_CHANGE_IP_PORT);
	record(first);
	EXPECT_EQ(machine.memory.attempts(), attempts + 1);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_CHANGE_IP_PORT), holds + 1);
	EXPECT_TRUE(update_connection(3, client_of(first), {ipv4(1, 1, 1, 1), be16::from_host(80)}));
	EXPECT_EQ(machine.memory.attempts(), attempts + 1);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_CHANGE_IP_PORT), holds + 2);
}

TEST_F(Connections, AreAllocatedWithoutTheLock)
{
	int allocations = 0;
	machine.memory.before_atomic_allocation([&](size_t) {
		machine.locks.expect_all_free("a connection's allocation");
		++allocations;
	});
	record(first);
	EXPECT_EQ(allocations, 1);
}

TEST_F(Connections, ChangeTheirDestinationButNotTheirMac)
{
	record(third);
	record(first);
	EXPECT_TRUE(update_connection(3, client_of(first), {ipv4(198, 51, 100, 20), be16::from_host(443)}));
	Connection changed = first;
	changed.server = ipv4(198, 51, 100, 20);
	changed.server_port = 443;
	EXPECT_EQ(connections(), (std::vector{third, changed}));
}

TEST_F(Connections, AreFoundByAddressAndPortTogether)
{
	record(first);
	const Destination destination = {ipv4(9, 9, 9, 9), be16::from_host(80)};
	EXPECT_FALSE(update_connection(3, {first.client, be16::from_host(51001)}, destination));
	EXPECT_FALSE(update_connection(3, {ipv4(192, 168, 1, 12), be16::from_host(51000)}, destination));
	EXPECT_FALSE(update_connection(2, client_of(first), destination));
	EXPECT_EQ(connections(), std::vector{first});
}

TEST_F(Connections, OfTheSameClientAndPortAreTakenInOrder)
{
	Connection twin = first;
	twin.server_port = 443;
	record(first);
	record(twin);
	EXPECT_TRUE(update_connection(3, client_of(first), {ipv4(9, 9, 9, 9), be16::from_host(8080)}));
	Connection changed = first;
	changed.server = ipv4(9, 9, 9, 9);
	changed.server_port = 8080;
	EXPECT_EQ(connections(), (std::vector{changed, twin}));
	EXPECT_TRUE(remove(3, client_of(first)));
	EXPECT_EQ(connections(), std::vector{twin});
}

TEST_F(Connections, AreRemovedAtTheHeadInTheMiddleAndAtTheTail)
{
	const std::vector<Connection> all = {first, second, third};
	for (size_t i = 0; i < all.size(); ++i) {
		for (const Connection &connection : all) {
			record(connection);
		}
		std::vector<Connection> left = all;
		left.erase(left.begin() + static_cast<ptrdiff_t>(i));
		EXPECT_TRUE(remove(3, client_of(all[i])));
		EXPECT_EQ(connections(), left);
		for (const Connection &connection : left) {
			EXPECT_TRUE(remove(3, client_of(connection)));
		}
		EXPECT_EQ(captive_portal_table[3].table_list, nullptr);
		EXPECT_TRUE(machine.live_allocations().empty());
	}
}

TEST_F(Connections, HaveNoLimit)
{
	for (uint32_t i = 0; i < 2000; ++i) {
		record({24, ipv4(10, 0, 0, 1), static_cast<uint16_t>(i), ipv4(203, 0, 113, 10), 80, server_mac});
	}
	EXPECT_EQ(connections().size(), 2000u);
	EXPECT_EQ(connections().back().client_port, 1999);
}

// Enough for the index to have grown, and to have split what it first held together.
constexpr uint32_t thousands = 3000;
constexpr uint32_t first_segment = 512;

Connection numbered(uint32_t number)
{
	return {number % 2 == 0 ? 5u : 25u,
		be32::from_host(0x0a000001 + number / 100),
		static_cast<uint16_t>(number),
		ipv4(203, 0, 113, 10),
		80,
		server_mac};
}

TEST_F(Connections, AreFoundAmongThousands)
{
	for (uint32_t number = 0; number < thousands; ++number) {
		record(numbered(number));
	}
	// A third of them goes, in an order of their own.
	for (uint32_t step = 0; step < thousands; ++step) {
		const uint32_t number = step * 1009 % thousands;
		if (number % 3 == 0) {
			ASSERT_TRUE(remove(numbered(number).row, client_of(numbered(number)))) << number;
		}
	}
	for (uint32_t number = 0; number < thousands; ++number) {
		const Connection connection = numbered(number);
		const Destination elsewhere = {ipv4(9, 9, 9, 9), be16::from_host(static_cast<uint16_t>(number))};
		ASSERT_EQ(update_connection(connection.row, client_of(connection), elsewhere), number % 3 != 0)
			<< number;
		ASSERT_FALSE(update_connection(connection.row + 1, client_of(connection), elsewhere)) << number;
	}
	std::vector<Connection> expected;
	for (const uint32_t odd : {0u, 1u}) {
		for (uint32_t number = odd; number < thousands; number += 2) {
			if (number % 3 != 0) {
				expected.push_back(numbered(number));
				expected.back().server = ipv4(9, 9, 9, 9);
				expected.back().server_port = static_cast<uint16_t>(number);
			}
		}
	}
	EXPECT_EQ(connections(), expected);
}

TEST_F(Connections, AreNotRecordedWithoutMemoryForTheIndex)
{
	for (uint32_t number = 0; number < first_segment; ++number) {
		record(numbered(number));
	}
	const size_t live = machine.live_allocations().size();
	machine.memory.fail_allocation(2);
	record(numbered(first_segment));
	EXPECT_EQ(connections().size(), first_segment);
	EXPECT_EQ(machine.live_allocations().size(), live);
	record(numbered(first_segment));
	EXPECT_EQ(connections().size(), first_segment + 1);
}

TEST_F(Connections, AskForTheIndexSMemoryWithoutTheLock)
{
	for (uint32_t number = 0; number < first_segment; ++number) {
		record(numbered(number));
	}
	std::vector<size_t> sizes;
	machine.memory.before_atomic_allocation([&](size_t size) {
		machine.locks.expect_all_free("a connection's allocation");
		sizes.push_back(size);
	});
	record(numbered(first_segment));
	EXPECT_EQ(sizes, (std::vector<size_t>{64, 4096}));
}

TEST_F(Connections, StayAtStopWithoutTheirIndex)
{
	for (uint32_t number = 0; number < thousands; ++number) {
		record(numbered(number));
	}
	EXPECT_GT(machine.live_allocations().size(), thousands);
	EXPECT_EQ(machine.unload(), 0);
	EXPECT_EQ(machine.live_allocations().size(), thousands);
	EXPECT_EQ(connections().size(), thousands);
	// A start in the same memory frees them, as any that it meets.
	EXPECT_EQ(machine.load(), 0);
	EXPECT_TRUE(connections().empty());
	EXPECT_TRUE(machine.live_allocations().empty());
	record(first);
	EXPECT_EQ(connections(), std::vector{first});
}

TEST_F(Connections, AreFreedAFewInAHold)
{
	constexpr uint32_t count = 1000;
	for (uint32_t number = 0; number < count; ++number) {
		record(numbered(number));
	}
	const uint64_t holds = machine.locks.acquisitions(CP_LOCK_CHANGE_IP_PORT);
	free_connections();
	EXPECT_GE(machine.locks.acquisitions(CP_LOCK_CHANGE_IP_PORT), holds + 1 + count / 64);
	EXPECT_TRUE(connections().empty());
	for (uint32_t number = 0; number < count; ++number) {
		ASSERT_FALSE(remove(numbered(number).row, client_of(numbered(number)))) << number;
	}
	EXPECT_LE(machine.live_allocations().size(), 1u) << "a segment of the index";
	record(second);
	EXPECT_EQ(connections(), std::vector{second});
	EXPECT_TRUE(remove(3, client_of(second)));
}

// The hooks run while a start frees what it finds, and whoever found an entry might free it as well.
TEST_F(Connections, AreNotFoundWhileAStartFreesThem)
{
	// The index's own memory, and some of the last entries to be freed.
	constexpr size_t last_allocations = 40;
	const Connection last = numbered(thousands - 1);
	uint32_t looks = 0;
	uint32_t found = 0;
	for (uint32_t round = 0; round < 1000 && looks < 3; ++round) {
		for (uint32_t number = 0; number < thousands; ++number) {
			record(numbered(number));
		}
		std::atomic<bool> done = false;
		std::thread bridge([&] {
			while (!done) {
				const LockGuard guard(Lock::change_ip_port);
				const bool is_under_way = captive_portal_table[last.row].table_list == nullptr &&
							  machine.live_allocations().size() > last_allocations;
				if (is_under_way) {
					++looks;
					found += find_connection(last.row, client_of(last)) != nullptr ? 1 : 0;
				}
			}
		});
		free_connections();
		done = true;
		bridge.join();
	}
	EXPECT_GT(looks, 0u);
	EXPECT_EQ(found, 0u);
}

} // namespace

} // namespace captive_portal::test
