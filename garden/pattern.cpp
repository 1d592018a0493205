// SPDX-License-Identifier: GPL-2.0-only
#include "garden/pattern.h"

#include "base/debug_level.h"
#include "base/memory.h"

namespace captive_portal
{

namespace
{

constexpr bool has_wildcard(Text pattern)
{
	for (size_t i = 0; i < pattern.length; ++i) {
		if (is_wildcard(pattern.characters[i])) {
			return true;
		}
	}
	return false;
}

// The text up to the first wildcard.
constexpr Text first_piece(Text pattern)
{
	size_t length = 0;
	while (length < pattern.length && !is_wildcard(pattern.characters[length])) {
		++length;
	}
	return {pattern.characters, length};
}

constexpr Text without_first(Text text, size_t count)
{
	return {text.characters + count, text.length - count};
}

constexpr size_t nowhere = ~size_t{0};

// Offset of the left-most occurrence of `piece`, which is not empty, or nowhere.
constexpr size_t find(Text text, Text piece)
{
	for (size_t offset = 0; offset + piece.length <= text.length; ++offset) {
		if (starts_with(without_first(text, offset), piece)) {
			return offset;
		}
	}
	return nowhere;
}

// Places the pieces of a pattern with a wildcard in turn. Each is taken at its left-most place and deliberately never
// tried again further right: rules in the field were written against this.
bool place_pieces(Text pattern, Text domain)
{
	const bool ends_with_wildcard = is_wildcard(pattern.characters[pattern.length - 1]);
	Text rest = domain;
	for (bool first = true;; first = false) {
		const Text piece = first_piece(pattern);
		if (piece.length != 0) {
			const size_t offset = find(rest, piece);
			if (offset == nowhere || (first && offset != 0)) {
				return false;
			}
			rest = without_first(rest, offset + piece.length);
		}
		if (piece.length == pattern.length) {
			break;
		}
		pattern = without_first(pattern, piece.length + 1);
	}
	if (ends_with_wildcard || rest.length == 0) {
		return true;
	}
	if (debug_level_reaches(3)) {
		cp_log(CP_LOG_DEBUG, "wildcard case : isLastCharWC=[%d], strlen(url_src_ptr)=[%zu]\n", 0, rest.length);
	}
	return false;
}

} // namespace

bool pattern_matches(Text pattern, Text domain)
{
	if (!has_wildcard(pattern)) {
		return pattern == domain;
	}
	if (pattern.length == 1) {
		return true;
	}
	const Owned<char> copy(cp_zalloc_atomic(pattern.length + 1));
	if (!copy) {
		return false;
	}
	store_text(copy.get(), pattern.length + 1, pattern);
	return place_pieces({copy.get(), pattern.length}, domain);
}

bool pattern_matches_in_place(Text pattern, Text domain)
{
	if (!has_wildcard(pattern)) {
		return pattern == domain;
	}
	return place_pieces(pattern, domain);
}

} // namespace captive_portal
