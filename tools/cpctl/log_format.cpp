// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/log_format.h"

#include <algorithm>

namespace cpctl
{

namespace
{

enum class Kind { literal, text, number, hexadecimal, address, mac };

struct Piece {
	Kind kind;
	std::string_view literal = {};
};

constexpr std::string_view digits = "0123456789";
constexpr std::string_view hexadecimal_digits = "0123456789abcdefABCDEF";
constexpr std::string_view mac_format = CPCTL_LOG_MAC;
constexpr size_t mac_text_length = 17;

[[nodiscard]] std::string_view without_end(std::string_view text)
{
	return text.substr(0, text.find_last_not_of(" \n") + 1);
}

// Takes what begins with a percent sign off the format.
[[nodiscard]] Piece take_conversion(std::string_view &format)
{
	if (format.starts_with(mac_format)) {
		format.remove_prefix(mac_format.size());
		return {Kind::mac};
	}
	if (format.starts_with("%pI4")) {
		format.remove_prefix(4);
		return {Kind::address};
	}
	// Flags, width, precision and length; the letter decides.
	const size_t letter = std::min(format.find_first_not_of("%.*0123456789lzh"), format.size() - 1);
	const char kind = format[letter];
	format.remove_prefix(letter + 1);
	switch (kind) {
	case 's':
		return {Kind::text};
	case 'x':
	case 'p':
		return {Kind::hexadecimal};
	default:
		return {Kind::number};
	}
}

[[nodiscard]] std::vector<Piece> pieces_of(std::string_view format)
{
	std::vector<Piece> pieces;
	format = without_end(format);
	while (!format.empty()) {
		if (format.front() == '%') {
			pieces.push_back(take_conversion(format));
			continue;
		}
		const size_t end = std::min(format.find('%'), format.size());
		pieces.push_back({Kind::literal, format.substr(0, end)});
		format.remove_prefix(end);
	}
	return pieces;
}

[[nodiscard]] size_t length_of(std::string_view line, std::string_view characters)
{
	return std::min(line.find_first_not_of(characters), line.size());
}

[[nodiscard]] size_t length_of_number(std::string_view line)
{
	const size_t sign = line.starts_with('-') ? 1 : 0;
	const size_t length = length_of(line.substr(sign), digits);
	return length == 0 ? 0 : sign + length;
}

// A pointer may be a word: kernels print "(null)" or "(____ptrval____)", and others "0x...".
[[nodiscard]] size_t length_of_hexadecimal(std::string_view line)
{
	if (line.starts_with('(')) {
		const size_t end = line.find(')');
		return end == std::string_view::npos ? 0 : end + 1;
	}
	const size_t prefix = line.starts_with("0x") ? 2 : 0;
	const size_t length = length_of(line.substr(prefix), hexadecimal_digits);
	return length == 0 ? 0 : prefix + length;
}

[[nodiscard]] size_t length_of_address(std::string_view line)
{
	size_t length = 0;
	for (int octet = 0; octet < 4; ++octet) {
		if (octet != 0) {
			if (length >= line.size() || line[length] != '.') {
				return 0;
			}
			++length;
		}
		const size_t number = length_of(line.substr(length), digits);
		if (number == 0) {
			return 0;
		}
		length += number;
	}
	return length;
}

[[nodiscard]] size_t length_of_mac(std::string_view line)
{
	if (line.size() < mac_text_length) {
		return 0;
	}
	for (size_t i = 0; i < mac_text_length; ++i) {
		const std::string_view allowed = i % 3 == 2 ? ":" : hexadecimal_digits;
		if (allowed.find(line[i]) == std::string_view::npos) {
			return 0;
		}
	}
	return mac_text_length;
}

// Of what is no text: as long as can be.
[[nodiscard]] size_t length_of_value(Kind kind, std::string_view line)
{
	switch (kind) {
	case Kind::number:
		return length_of_number(line);
	case Kind::hexadecimal:
		return length_of_hexadecimal(line);
	case Kind::address:
		return length_of_address(line);
	case Kind::mac:
		return length_of_mac(line);
	default:
		return 0;
	}
}

class Matcher
{
public:
	explicit Matcher(const std::vector<Piece> &pieces) : pieces_(pieces) {}

	// Whether the pieces from `index` on are all of the line; then values() are theirs.
	[[nodiscard]] bool matches(size_t index, std::string_view line)
	{
		if (index == pieces_.size()) {
			return line.empty();
		}
		const Piece &piece = pieces_[index];
		if (piece.kind == Kind::literal) {
			return line.starts_with(piece.literal) && matches(index + 1, line.substr(piece.literal.size()));
		}
		if (piece.kind != Kind::text) {
			const size_t length = length_of_value(piece.kind, line);
			return length != 0 && take(index, line, length);
		}
		if (index + 1 == pieces_.size()) {
			return take(index, line, line.size());
		}
		for (size_t length = 0; length <= line.size(); ++length) {
			if (take(index, line, length)) {
				return true;
			}
		}
		return false;
	}
	[[nodiscard]] std::vector<std::string> values() const { return {values_.begin(), values_.end()}; }

private:
	[[nodiscard]] bool take(size_t index, std::string_view line, size_t length)
	{
		values_.push_back(line.substr(0, length));
		if (matches(index + 1, line.substr(length))) {
			return true;
		}
		values_.pop_back();
		return false;
	}

	const std::vector<Piece> &pieces_;
	std::vector<std::string_view> values_;
};

} // namespace

std::optional<std::vector<std::string>> match_log_format(std::string_view format, std::string_view line)
{
	const std::vector<Piece> pieces = pieces_of(format);
	Matcher matcher(pieces);
	if (!matcher.matches(0, without_end(line))) {
		return std::nullopt;
	}
	return matcher.values();
}

size_t conversions_of(std::string_view format)
{
	const std::vector<Piece> pieces = pieces_of(format);
	return static_cast<size_t>(
		std::ranges::count_if(pieces, [](const Piece &piece) { return piece.kind != Kind::literal; }));
}

} // namespace cpctl
