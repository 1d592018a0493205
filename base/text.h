// SPDX-License-Identifier: GPL-2.0-only
// Text in fields of a fixed size. A text ends at its NUL, or at the end of its field where there is none.
#pragma once

#include "captive_portal/fixed_width.h"

namespace captive_portal
{

// A text and how many characters it has; it need not be NUL-terminated.
struct Text {
	const char *characters;
	size_t length;

	// The character at `index`, NUL at and behind the end.
	[[nodiscard]] constexpr char at(size_t index) const { return index < length ? characters[index] : '\0'; }
};

// The text that starts at `field`, which has room for `size` characters.
[[nodiscard]] constexpr Text text_of_field(const char *field, size_t size)
{
	size_t length = 0;
	while (length < size && field[length] != '\0') {
		++length;
	}
	return {field, length};
}

template <size_t size> [[nodiscard]] constexpr Text text_of_field(const char (&field)[size])
{
	return text_of_field(field, size);
}

[[nodiscard]] constexpr bool operator==(Text a, Text b)
{
	if (a.length != b.length) {
		return false;
	}
	size_t i = 0;
	if (!__builtin_is_constant_evaluated()) {
		for (uint64_t words[2]; i + sizeof(words[0]) <= a.length; i += sizeof(words[0])) {
			__builtin_memcpy(&words[0], a.characters + i, sizeof(words[0]));
			__builtin_memcpy(&words[1], b.characters + i, sizeof(words[1]));
			if (words[0] != words[1]) {
				return false;
			}
		}
	}
	for (; i < a.length; ++i) {
		if (a.characters[i] != b.characters[i]) {
			return false;
		}
	}
	return true;
}

[[nodiscard]] constexpr bool starts_with(Text text, Text prefix)
{
	return text.length >= prefix.length && Text{text.characters, prefix.length} == prefix;
}

// Stores the text, cut to size - 1 characters, and a NUL; zeroes the rest of the field.
constexpr void store_text(char *field, size_t size, Text text)
{
	const size_t kept = text.length < size ? text.length : size - 1;
	for (size_t i = 0; i < size; ++i) {
		field[i] = i < kept ? text.characters[i] : '\0';
	}
}

// Static, so that each object keeps its own: the linker throws a shared one out of all objects but the first, and where a
// kernel checks each object by itself, the stack tables of the others would still speak of it.
template <size_t size> static constexpr void store_text(char (&field)[size], Text text)
{
	store_text(field, size, text);
}

// Writes the text and, where the field has room for it, a NUL. What follows in the field stays as it is.
template <size_t size> constexpr void overwrite_text(char (&field)[size], Text text)
{
	const size_t kept = text.length < size ? text.length : size;
	for (size_t i = 0; i < kept; ++i) {
		field[i] = text.characters[i];
	}
	if (kept < size) {
		field[kept] = '\0';
	}
}

} // namespace captive_portal
