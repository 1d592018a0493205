// SPDX-License-Identifier: GPL-2.0-only
#include "lib/addresses.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>

#include "lib/failure.h"
#include "lib/interface.h"

namespace libcaptiveportal
{

namespace
{

constexpr unsigned bits_of_address = 32;
constexpr size_t mac_octets = sizeof(captiveportal_mac::octets);

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

uint32_t host_order(uint32_t address)
{
	const auto octets = std::bit_cast<std::array<uint8_t, 4>>(address);
	return static_cast<uint32_t>(octets[0]) << 24 | static_cast<uint32_t>(octets[1]) << 16 |
	       static_cast<uint32_t>(octets[2]) << 8 | octets[3];
}

} // namespace

captiveportal_mac parse_mac(std::string_view text)
{
	const auto failure = [text] { return invalid(quoted(text) + " is no MAC address: write 02:00:5e:10:00:01"); };
	constexpr size_t step = 3;
	if (text.size() != mac_octets * step - 1) {
		throw failure();
	}
	const char separator = text[2];
	if (separator != ':' && separator != '-') {
		throw failure();
	}
	captiveportal_mac mac = {};
	for (size_t i = 0; i < mac_octets; i++) {
		const auto octet = hexadecimal_pair(text.substr(i * step, 2));
		if (!octet || (i > 0 && text[i * step - 1] != separator)) {
			throw failure();
		}
		mac.octets[i] = *octet;
	}
	return mac;
}

void require_station(const captiveportal_mac &mac)
{
	if (same_mac(mac, {})) {
		throw invalid(quoted(format_mac(mac)) + " is the empty address: no client sends from it");
	}
	if ((mac.octets[0] & 1) != 0) {
		throw invalid(quoted(format_mac(mac)) + " is a group address: the module drops every frame from one");
	}
}

std::string format_mac(const captiveportal_mac &mac)
{
	constexpr std::string_view digits = "0123456789abcdef";
	std::string text;
	for (const uint8_t octet : mac.octets) {
		if (!text.empty()) {
			text += ':';
		}
		text += digits[octet >> 4];
		text += digits[octet & 0xf];
	}
	return text;
}

bool same_mac(const captiveportal_mac &one, const captiveportal_mac &other)
{
	return std::ranges::equal(one.octets, other.octets);
}

std::optional<uint32_t> scan_address(std::string_view text)
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
	return std::bit_cast<uint32_t>(octets);
}

std::string format_address(uint32_t address)
{
	std::string text;
	for (const uint8_t octet : std::bit_cast<std::array<uint8_t, 4>>(address)) {
		if (!text.empty()) {
			text += '.';
		}
		text += std::to_string(octet);
	}
	return text;
}

uint32_t mask_of_length(unsigned length)
{
	// Turning the bytes of a number round is the same in both directions.
	return host_order(length == 0 ? 0 : UINT32_MAX << (bits_of_address - length));
}

std::optional<unsigned> length_of_mask(uint32_t mask)
{
	const auto length = static_cast<unsigned>(std::countl_one(host_order(mask)));
	if (mask_of_length(length) != mask) {
		return std::nullopt;
	}
	return length;
}

} // namespace libcaptiveportal

using namespace libcaptiveportal;

extern "C" {

int captiveportal_parse_mac(const char *text, captiveportal_mac *mac)
{
	return guarded([&] {
		given(mac, "place for a MAC address") = parse_mac(word_of(text));
		return CAPTIVEPORTAL_OK;
	});
}

int captiveportal_check_station(const captiveportal_mac *mac)
{
	return guarded([&] {
		require_station(given(mac, "MAC address"));
		return CAPTIVEPORTAL_OK;
	});
}

void captiveportal_format_mac(const captiveportal_mac *mac, char text[CAPTIVEPORTAL_MAC_SIZE])
{
	store_text(text, CAPTIVEPORTAL_MAC_SIZE, format_mac(*mac));
}

int captiveportal_parse_address(const char *text, uint32_t *address)
{
	return guarded([&] {
		const auto scanned = scan_address(word_of(text));
		if (!scanned) {
			throw invalid(quoted(word_of(text)) +
				      " is no IPv4 address: write four numbers from 0 to 255 with dots");
		}
		given(address, "place for an address") = *scanned;
		return CAPTIVEPORTAL_OK;
	});
}

void captiveportal_format_address(uint32_t address, char text[CAPTIVEPORTAL_ADDRESS_SIZE])
{
	store_text(text, CAPTIVEPORTAL_ADDRESS_SIZE, format_address(address));
}

uint32_t captiveportal_netmask(unsigned int length)
{
	return mask_of_length(std::min(length, bits_of_address));
}

int captiveportal_prefix_length(uint32_t netmask)
{
	return guarded([&] {
		const auto length = length_of_mask(netmask);
		if (!length) {
			throw invalid(format_address(netmask) + " is no length: a one follows a zero in it");
		}
		return static_cast<int>(*length);
	});
}
}
