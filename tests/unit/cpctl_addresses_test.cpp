// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/addresses.h"

#include <gtest/gtest.h>

#include <bit>

#include "cpctl/failure.h"

namespace cpctl
{

namespace
{

using Octets = std::array<uint8_t, 4>;

Octets octets_of(Ipv4Address address)
{
	return std::bit_cast<Octets>(address.raw);
}

TEST(MacAddress, ReadsColonsAndHyphensInEitherCase)
{
	const MacAddress expected = {0x02, 0x00, 0x5e, 0x10, 0xab, 0xff};
	EXPECT_EQ(parse_mac("02:00:5e:10:ab:ff"), expected);
	EXPECT_EQ(parse_mac("02-00-5E-10-AB-FF"), expected);
}

TEST(MacAddress, RefusesEverythingElse)
{
	for (const char *text :
	     {"", "02", "02:00:5e:10:ab", "02:00:5e:10:ab:f", "02:00:5e:10:ab:ff:", "02:00:5e:10:ab:fg",
	      "02:00-5e:10:ab:ff", "0200.5e10.abff", "02005e10abff", " 2:00:5e:10:ab:ff", "+2:00:5e:10:ab:ff",
	      "-2:00:5e:10:ab:ff", "02:00:5e:10:ab:ff:01"}) {
		EXPECT_THROW((void)parse_mac(text), Failure) << text;
	}
}

TEST(MacAddress, OfAStationIsNeitherEmptyNorOfAGroup)
{
	EXPECT_THROW((void)parse_station_mac("00:00:00:00:00:00"), Failure);
	EXPECT_THROW((void)parse_station_mac("01:00:5e:00:00:01"), Failure);
	EXPECT_THROW((void)parse_station_mac("ff:ff:ff:ff:ff:ff"), Failure);
	EXPECT_EQ(parse_station_mac("00:00:00:00:00:01"), (MacAddress{0, 0, 0, 0, 0, 1}));
}

TEST(MacAddress, IsWrittenInLowerCaseWithColons)
{
	EXPECT_EQ(format_mac({0x02, 0x00, 0x5e, 0x10, 0xab, 0xff}), "02:00:5e:10:ab:ff");
}

TEST(Ipv4Address, LiesInNetworkOrder)
{
	EXPECT_EQ(octets_of(parse_ipv4("192.0.2.1")), (Octets{192, 0, 2, 1}));
	EXPECT_EQ(octets_of(parse_ipv4("0.0.0.0")), (Octets{0, 0, 0, 0}));
	EXPECT_EQ(octets_of(parse_ipv4("255.255.255.255")), (Octets{255, 255, 255, 255}));
}

TEST(Ipv4Address, RefusesEverythingButAStrictDottedQuad)
{
	for (const char *text :
	     {"", "1", "1.2.3", "1.2.3.", ".1.2.3", "1..2.3", "1.2.3.4.", "1.2.3.4.5", "256.0.0.1", "1.2.3.04",
	      "1.2.3.0x4", "1.2.3.-4", "1.2.3.+4", " 1.2.3.4", "1.2.3.4 ", "1000.2.3.4"}) {
		EXPECT_THROW((void)parse_ipv4(text), Failure) << text;
	}
}

TEST(Ipv4Address, IsWrittenAsADottedQuad)
{
	EXPECT_EQ(format_ipv4({std::bit_cast<uint32_t>(Octets{198, 51, 100, 7})}), "198.51.100.7");
}

TEST(NetworkMask, HasItsOnesInFront)
{
	EXPECT_EQ(octets_of(mask_of_length(0)), (Octets{0, 0, 0, 0}));
	EXPECT_EQ(octets_of(mask_of_length(1)), (Octets{128, 0, 0, 0}));
	EXPECT_EQ(octets_of(mask_of_length(20)), (Octets{255, 255, 240, 0}));
	EXPECT_EQ(octets_of(mask_of_length(32)), (Octets{255, 255, 255, 255}));
}

TEST(NetworkMask, HasALengthWhenNoOneFollowsAZero)
{
	EXPECT_EQ(length_of_mask(parse_ipv4("0.0.0.0")), 0U);
	EXPECT_EQ(length_of_mask(parse_ipv4("255.255.240.0")), 20U);
	EXPECT_EQ(length_of_mask(parse_ipv4("255.255.255.255")), 32U);
	EXPECT_EQ(length_of_mask(parse_ipv4("255.0.255.0")), std::nullopt);
}

} // namespace

} // namespace cpctl
