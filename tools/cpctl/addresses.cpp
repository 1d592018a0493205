// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/addresses.h"

#include <algorithm>

#include "captiveportal.h"
#include "cpctl/library.h"

namespace cpctl
{

namespace
{

captiveportal_mac library_mac(const MacAddress &mac)
{
	captiveportal_mac copy = {};
	std::ranges::copy(mac, copy.octets);
	return copy;
}

} // namespace

MacAddress parse_mac(std::string_view text)
{
	captiveportal_mac mac = {};
	judged(captiveportal_parse_mac(library_text(text).c_str(), &mac));
	return std::to_array(mac.octets);
}

MacAddress parse_station_mac(std::string_view text)
{
	const MacAddress mac = parse_mac(text);
	const captiveportal_mac copy = library_mac(mac);
	judged(captiveportal_check_station(&copy));
	return mac;
}

std::string format_mac(const MacAddress &mac)
{
	const captiveportal_mac copy = library_mac(mac);
	char text[CAPTIVEPORTAL_MAC_SIZE] = {};
	captiveportal_format_mac(&copy, text);
	return text;
}

std::optional<Ipv4Address> scan_ipv4(std::string_view text)
{
	Ipv4Address address;
	if (text.find('\0') != std::string_view::npos ||
	    captiveportal_parse_address(std::string(text).c_str(), &address.raw) != CAPTIVEPORTAL_OK) {
		return std::nullopt;
	}
	return address;
}

Ipv4Address parse_ipv4(std::string_view text)
{
	Ipv4Address address;
	judged(captiveportal_parse_address(library_text(text).c_str(), &address.raw));
	return address;
}

std::string format_ipv4(Ipv4Address address)
{
	char text[CAPTIVEPORTAL_ADDRESS_SIZE] = {};
	captiveportal_format_address(address.raw, text);
	return text;
}

Ipv4Address mask_of_length(unsigned length)
{
	return {captiveportal_netmask(length)};
}

std::optional<unsigned> length_of_mask(Ipv4Address mask)
{
	const int length = captiveportal_prefix_length(mask.raw);
	return length >= 0 ? std::optional<unsigned>(length) : std::nullopt;
}

} // namespace cpctl
