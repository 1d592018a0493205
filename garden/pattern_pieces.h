// SPDX-License-Identifier: GPL-2.0-only
// How a pattern and a name are compared. Needs nothing of a kernel, so that programs ask the same code about rules.
#pragma once

#include "garden/pattern.h"

namespace captive_portal
{

[[nodiscard]] constexpr bool has_wildcard(Text pattern)
{
	for (size_t i = 0; i < pattern.length; ++i) {
		if (is_wildcard(pattern.characters[i])) {
			return true;
		}
	}
	return false;
}

// The text up to the first wildcard.
[[nodiscard]] constexpr Text first_piece(Text pattern)
{
	size_t length = 0;
	while (length < pattern.length && !is_wildcard(pattern.characters[length])) {
		++length;
	}
	return {pattern.characters, length};
}

[[nodiscard]] constexpr Text without_first(Text text, size_t count)
{
	return {text.characters + count, text.length - count};
}

inline constexpr size_t nowhere = ~size_t{0};

// Offset of the left-most occurrence of `piece`, which is not empty, or nowhere.
[[nodiscard]] constexpr size_t find(Text text, Text piece)
{
	for (size_t offset = 0; offset + piece.length <= text.length; ++offset) {
		if (starts_with(without_first(text, offset), piece)) {
			return offset;
		}
	}
	return nowhere;
}

// 0 when the pattern matches the name; nowhere when a piece of it, or the whole of one without a wildcard, is not there;
// else how many characters of the name are left over behind the last piece. Places the pieces in turn. Each is taken at
// its left-most place and deliberately never tried again further right: rules in the field were written against this.
[[nodiscard]] constexpr size_t characters_left_over(Text pattern, Text domain)
{
	if (!has_wildcard(pattern)) {
		return pattern == domain ? 0 : nowhere;
	}
	const bool ends_with_wildcard = is_wildcard(pattern.characters[pattern.length - 1]);
	Text rest = domain;
	for (bool first = true;; first = false) {
		const Text piece = first_piece(pattern);
		if (piece.length != 0) {
			const size_t offset = find(rest, piece);
			if (offset == nowhere || (first && offset != 0)) {
				return nowhere;
			}
			rest = without_first(rest, offset + piece.length);
		}
		if (piece.length == pattern.length) {
			break;
		}
		pattern = without_first(pattern, piece.length + 1);
	}
	return ends_with_wildcard ? 0 : rest.length;
}

} // namespace captive_portal
