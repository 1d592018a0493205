// SPDX-License-Identifier: GPL-2.0-only
// The cast: who sends and receives in tests, and the access point that they meet at.
#pragma once

#include <array>
#include <cstdint>

#include "base/byte_order.h"
#include "platform/host/machine.h"

namespace captive_portal::test
{

using Mac = std::array<uint8_t, 6>;

// An IPv4 address from its four octets, as it lies in a packet.
[[nodiscard]] constexpr Ipv4Address ipv4(uint8_t a, uint8_t b, uint8_t c, uint8_t d)
{
	return be32::from_host(static_cast<uint32_t>(a) << 24 | static_cast<uint32_t>(b) << 16 |
			       static_cast<uint32_t>(c) << 8 | d);
}

// A partner: the address that stands in its packets, and the MAC address that they carry on the bridge.
struct Host {
	Mac mac;
	Ipv4Address address;
};

inline constexpr Mac router_mac = {0x02, 0x22, 0, 0, 0, 0xfe};

inline constexpr Host access_point = {{0x02, 0xaa, 0, 0, 0, 0x01}, ipv4(192, 168, 1, 1)};
// Clients: the third to fifth byte of the MAC are radio, VAP and number, the last octet of the address is free.
inline constexpr Host client_of_wlan_1_1 = {{0x02, 0x11, 1, 1, 1, 0}, ipv4(192, 168, 1, 11)};
inline constexpr Host second_client_of_wlan_1_1 = {{0x02, 0x11, 1, 1, 2, 0}, ipv4(192, 168, 1, 12)};
inline constexpr Host client_of_wlan_1_2 = {{0x02, 0x11, 1, 2, 1, 0}, ipv4(192, 168, 1, 21)};
inline constexpr Host client_of_wlan_2_1 = {{0x02, 0x11, 2, 1, 1, 0}, ipv4(192, 168, 1, 31)};
inline constexpr Host client_of_wlan_3_8 = {{0x02, 0x11, 3, 8, 1, 0}, ipv4(192, 168, 1, 38)};
inline constexpr Host wired_host = {{0x02, 0x33, 0, 0, 0, 0x01}, ipv4(192, 168, 1, 77)};
inline constexpr Host broadcast = {{0xff, 0xff, 0xff, 0xff, 0xff, 0xff}, ipv4(255, 255, 255, 255)};

// The way out, and servers behind it: on the bridge their frames carry the router's MAC.
inline constexpr Host router = {router_mac, ipv4(192, 168, 1, 254)};
inline constexpr Host upstream_server = {router_mac, ipv4(203, 0, 113, 10)};
inline constexpr Host second_upstream_server = {router_mac, ipv4(198, 51, 100, 20)};
inline constexpr Host upstream_dns = {router_mac, ipv4(203, 0, 113, 53)};
inline constexpr Host private_server = {router_mac, ipv4(10, 9, 8, 7)};
inline constexpr Host social_login = {router_mac, ipv4(2, 2, 2, 2)};
inline constexpr Host dns_filter = {router_mac, ipv4(4, 4, 4, 4)};
inline constexpr Host logout_server = {router_mac, ipv4(1, 2, 3, 4)};

// Gives the machine its devices: the bridge "br0" with the access point's addresses, its ports "wlan-1-1" to "wlan-3-8"
// and "eth0".
void build_access_point(host::Machine &machine);

} // namespace captive_portal::test
