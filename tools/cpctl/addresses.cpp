// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/addresses.h"

#include <bit>
#include <charconv>
#include <cstring>

#include "cpctl/failure.h"
#include "cpctl/quoted.h"

namespace cpctl
{

namespace
{

constexpr unsigned bits_of_address = 32;

std::optional<uint8_t> hexadecimal_pair(std::string_view pair)
{
	uint8_t value = 0;
	const auto [end, error] = std::from_chars(pair.data(), pair.data() + pair.size(), value, 16);
	if (error != std::errc() || end != pair.data() + pair.size()) {
		return std::nullopt;
	}
	return value;
}

std::optional<uint8_t> decimal_octet(std::string_view digits)
{
	if (digits.empty() || digits.size() > 3 || (digits.size() > 1 && digits.front() == '0')) {
		return std::nullopt;
	}
	unsigned value = 0;
	const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
	if (error != std::errc() || end != digits.data() + digits.size() || value > UINT8_MAX) {
		return std::nullopt;
	}
	return static_cast<uint8_t>(value);
}

Ipv4Address of_host_order(uint32_t value)
{
	const std::array<uint8_t, 4> octets = {static_cast<uint8_t>(value >> 24), static_cast<uint8_t>(value >> 16),
					       static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
	return {std::bit_cast<uint32_t>(octets)};
}

uint32_t host_order(Ipv4Address address)
{
	const auto octets = std::bit_cast<std::array<uint8_t, 4>>(address.raw);
	return static_cast<uint32_t>(octets[0]) << 24 | static_cast<uint32_t>(octets[1]) << 16 |
	       static_cast<uint32_t>(octets[2]) << 8 | octets[3];
}

} // namespace

MacAddress parse_mac(std::string_view text)
{
	const auto failure = [text] {
		return usage_failure(quoted(text) + " is no MAC address: write 02:00:5e:10:00:01");
	};
	constexpr size_t step = 3;
	MacAddress mac = {};
	if (text.size() != mac.size() * step - 1) {
		throw failure();
	}
	const char separator = text[2];
	if (separator != ':' && separator != '-') {
		throw failure();
	}
	for (size_t i = 0; i < mac.size(); i++) {
		const auto octet = hexadecimal_pair(text.substr(i * step, 2));
		if (!octet || (i > 0 && text[i * step - 1] != separator)) {
			throw failure();
		}
		mac[i] = *octet;
	}
	return mac;
}

MacAddress parse_station_mac(std::string_view text)
{
	const MacAddress mac = parse_mac(text);
	if (mac == MacAddress{}) {
		throw usage_failure(quoted(text) + " is the empty address: no client sends from it");
	}
	if ((mac[0] & 1) != 0) {
		throw usage_failure(quoted(text) + " is a group address: the module drops every frame from one");
	}
	return mac;
}

std::string format_mac(const MacAddress &mac)
{
	constexpr std::string_view digits = "0123456789abcdef";
	std::string text;
	for (const uint8_t octet : mac) {
		if (!text.empty()) {
			text += ':';
		}
		text += digits[octet >> 4];
		text += digits[octet & 0xf];
	}
	return text;
}

std::optional<Ipv4Address> scan_ipv4(std::string_view text)
{
	std::array<uint8_t, 4> octets = {};
	for (size_t i = 0; i < octets.size(); i++) {
		const bool last = i + 1 == octets.size();
		const size_t dot = last ? text.size() : text.find('.');
		if (dot == std::string_view::npos) {
			return std::nullopt;
		}
		const auto octet = decimal_octet(text.substr(0, dot));
		if (!octet) {
			return std::nullopt;
		}
		octets[i] = *octet;
		text.remove_prefix(last ? dot : dot + 1);
	}
	return Ipv4Address{std::bit_cast<uint32_t>(octets)};
}

Ipv4Address parse_ipv4(std::string_view text)
{
	const auto address = scan_ipv4(text);
	if (!address) {
		throw usage_failure(quoted(text) + " is no IPv4 address: write four numbers from 0 to 255 with dots");
	}
	return *address;
}

std::string format_ipv4(Ipv4Address address)
{
	std::string text;
	for (const uint8_t octet : std::bit_cast<std::array<uint8_t, 4>>(address.raw)) {
		if (!text.empty()) {
			text += '.';
		}
		text += std::to_string(octet);
	}
	return text;
}

Ipv4Address mask_of_length(unsigned length)
{
	return of_host_order(length == 0 ? 0 : UINT32_MAX << (bits_of_address - length));
}

std::optional<unsigned> length_of_mask(Ipv4Address mask)
{
	const auto length = static_cast<unsigned>(std::countl_one(host_order(mask)));
	if (mask_of_length(length) != mask) {
		return std::nullopt;
	}
	return length;
}

} // namespace cpctl
