// SPDX-License-Identifier: GPL-2.0-only
#include "tests/model/peer_text.h"

#include <algorithm>
#include <stdexcept>

namespace captive_portal::test
{

namespace
{

uint8_t digit_value(char digit)
{
	if (digit >= '0' && digit <= '9') {
		return static_cast<uint8_t>(digit - '0');
	}
	if (digit >= 'a' && digit <= 'f') {
		return static_cast<uint8_t>(digit - 'a' + 10);
	}
	refuse("not lower-case hexadecimal");
}

// Replaces what stands between the end of `before` and the next `after`; a line without them stays as it is.
size_t replace_between(std::string &line, size_t from, std::string_view before, std::string_view after,
		       std::string_view text)
{
	const size_t begin = line.find(before, from);
	if (begin == std::string::npos) {
		return line.size();
	}
	const size_t inside = begin + before.size();
	const size_t end = line.find(after, inside);
	if (end == std::string::npos) {
		return line.size();
	}
	line.replace(inside, end - inside, text);
	return inside + text.size();
}

std::string utf8_of(std::string_view bytes)
{
	std::string text;
	for (const char byte : bytes) {
		const auto value = static_cast<uint8_t>(byte);
		if (value < 0x80) {
			text += byte;
		} else {
			text += static_cast<char>(0xc0 | value >> 6);
			text += static_cast<char>(0x80 | (value & 0x3f));
		}
	}
	return text;
}

} // namespace

void refuse(const std::string &why)
{
	throw std::runtime_error("bad step: " + why);
}

std::vector<uint8_t> bytes_of(const std::string &digits)
{
	if (digits.size() % 2 != 0) {
		refuse("half a byte");
	}
	std::vector<uint8_t> bytes(digits.size() / 2);
	for (size_t i = 0; i < bytes.size(); ++i) {
		bytes[i] = static_cast<uint8_t>(digit_value(digits[2 * i]) << 4 | digit_value(digits[2 * i + 1]));
	}
	return bytes;
}

std::string digits_of(std::span<const uint8_t> bytes)
{
	constexpr char digits[] = "0123456789abcdef";
	std::string text(2 * bytes.size(), '\0');
	for (size_t i = 0; i < bytes.size(); ++i) {
		text[2 * i] = digits[bytes[i] >> 4];
		text[2 * i + 1] = digits[bytes[i] & 15];
	}
	return text;
}

std::string portable_line(const std::string &line)
{
	std::string text = line;
	if (text.starts_with("summary_write [") || text.starts_with("summary_read [")) {
		replace_between(text, 0, " [", "]", "LINE");
	} else if (text.starts_with("DNS packets might be corrupt or fragmented: ")) {
		const size_t behind_first = replace_between(text, 0, "fragmented: ", " + ", "PTR");
		replace_between(text, behind_first, " > ", "\n", "PTR");
	}
	return utf8_of(text);
}

} // namespace captive_portal::test
