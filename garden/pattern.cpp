// SPDX-License-Identifier: GPL-2.0-only
#include "garden/pattern.h"

#include "base/debug_level.h"
#include "base/memory.h"
#include "garden/pattern_pieces.h"

namespace captive_portal
{

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
	return pattern_matches_in_place({copy.get(), pattern.length}, domain);
}

bool pattern_matches_in_place(Text pattern, Text domain)
{
	const size_t left_over = characters_left_over(pattern, domain);
	if (left_over != 0 && left_over != nowhere && debug_level_reaches(3)) {
		cp_log(CP_LOG_DEBUG, "wildcard case : isLastCharWC=[%d], strlen(url_src_ptr)=[%zu]\n", 0, left_over);
	}
	return left_over == 0;
}

} // namespace captive_portal
