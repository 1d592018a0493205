// SPDX-License-Identifier: GPL-2.0-only
#include "base/byte_order.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

namespace captive_portal::test
{

TEST(ByteOrder, KeepsNumbersAsTheyLieInAPacket)
{
	EXPECT_EQ(be16::from_host(80).raw, 20480);
	EXPECT_EQ(be16{20480}.host(), 80);
	EXPECT_EQ(be32::from_host(0x01020304).raw, 0x04030201u);
	EXPECT_EQ(be32{0x04030201}.host(), 0x01020304u);
	EXPECT_TRUE(be16::from_host(443) == be16{0xbb01});
	EXPECT_FALSE(be32::from_host(1) == be32{1});
}

TEST(ByteOrder, ReadsAndWritesAtOddAddresses)
{
	// An odd address at the very end of a block: neither a misaligned access nor one past the end goes unnoticed.
	auto *const bytes = static_cast<uint8_t *>(std::malloc(5));
	std::memcpy(bytes, "\0\1\2\3\4", 5);
	EXPECT_EQ(read_unaligned<be32>(bytes + 1).host(), 0x01020304u);
	EXPECT_EQ(read_unaligned<be16>(bytes + 3).host(), 0x0304);
	write_unaligned(bytes + 1, be32::from_host(0xa1b2c3d4));
	EXPECT_EQ(std::memcmp(bytes, "\0\xa1\xb2\xc3\xd4", 5), 0);
	std::free(bytes);
}

} // namespace captive_portal::test
