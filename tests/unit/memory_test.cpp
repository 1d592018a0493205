// SPDX-License-Identifier: GPL-2.0-only
#include "base/memory.h"

#include "tests/support/host_test.h"

namespace captive_portal::test
{

using Memory = HostTest;

namespace
{

struct Node {
	Node *next;
	uint32_t number;
};

} // namespace

TEST_F(Memory, IsZeroed)
{
	Node *const node = allocate_zeroed<Node>();
	ASSERT_NE(node, nullptr);
	EXPECT_EQ(node->next, nullptr);
	EXPECT_EQ(node->number, 0u);
	ASSERT_EQ(machine.live_allocations().size(), 1u);
	EXPECT_EQ(machine.live_allocations()[0].size, sizeof(Node));
	cp_free(node);
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(Memory, OwnedIsFreedAtTheEndOfItsScope)
{
	{
		const Owned<Node> node(cp_zalloc_atomic(sizeof(Node)));
		ASSERT_TRUE(static_cast<bool>(node));
		EXPECT_EQ(node->number, 0u);
		EXPECT_EQ(&*node, node.get());
		EXPECT_EQ(machine.live_allocations().size(), 1u);
	}
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(Memory, OwnedMayHoldNothing)
{
	machine.memory.fail_allocation(1);
	const Owned<Node> node(cp_zalloc_atomic(sizeof(Node)));
	EXPECT_FALSE(static_cast<bool>(node));
}

} // namespace captive_portal::test
