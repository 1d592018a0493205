// SPDX-License-Identifier: GPL-2.0-only
// MAC and IPv4 addresses as an administrator writes them.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "captive_portal/gatekeeper.h"

namespace cpctl
{

using MacAddress = std::array<uint8_t, CP_MAC_SIZE>;

// Six pairs of hexadecimal digits with ':' or '-' between them; anything else is a usage failure.
[[nodiscard]] MacAddress parse_mac(std::string_view text);

// As parse_mac(), for an address that a station can send from: not all zero, no group address. The module drops frames
// from those whatever its tables say, so listing one would do nothing.
[[nodiscard]] MacAddress parse_station_mac(std::string_view text);

// Lower case, with colons.
[[nodiscard]] std::string format_mac(const MacAddress &mac);

// An address in the byte order of the network, as it lies in the module's records.
struct Ipv4Address {
	uint32_t raw = 0;

	bool operator==(const Ipv4Address &) const = default;
};

// The address of a strict dotted quad (four decimal numbers up to 255, no leading zeros), or nothing.
[[nodiscard]] std::optional<Ipv4Address> scan_ipv4(std::string_view text);

// As scan_ipv4(); a usage failure when it is none.
[[nodiscard]] Ipv4Address parse_ipv4(std::string_view text);

[[nodiscard]] std::string format_ipv4(Ipv4Address address);

// The mask with `length` leading ones, 0 to 32.
[[nodiscard]] Ipv4Address mask_of_length(unsigned length);

// Number of leading ones, or nothing when ones follow a zero.
[[nodiscard]] std::optional<unsigned> length_of_mask(Ipv4Address mask);

} // namespace cpctl
