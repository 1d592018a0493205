// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/cached_addresses.h"

#include <algorithm>
#include <cctype>
#include <map>

#include "cpctl/addresses.h"
#include "cpctl/failure.h"
#include "cpctl/row_names.h"

namespace cpctl
{

namespace
{

[[nodiscard]] char small(char letter)
{
	return static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
}

} // namespace

std::vector<CachedAddress> read_cached_addresses(const ReadStatusFile &read)
{
	std::vector<CachedAddress> entries;
	std::map<std::string, size_t> places;
	for (const StatusLine &line : parse_status_lines(read("cache"))) {
		if (line.keyword() == "cached") {
			const auto [place, is_new] = places.try_emplace(line.text("address"), entries.size());
			if (is_new) {
				entries.emplace_back();
			}
			entries[place->second] = {.address = line.text("address"),
						  .timeout = line.number("timeout"),
						  .gardens = static_cast<uint32_t>(line.number("gardens"))};
		} else if (line.keyword() == "cached-name") {
			const auto place = places.find(line.text("address"));
			if (place == places.end()) {
				throw Failure(ExitCode::unavailable,
					      "the module's status has a name of an address that it has not: is this "
					      "cpctl as new as the module?");
			}
			entries[place->second].names.push_back(line.text("name"));
		}
	}
	return entries;
}

// The last run that "*" stands for is lengthened where what follows it does not fit.
bool is_like(std::string_view name, std::string_view pattern)
{
	size_t at = 0;
	size_t pattern_at = 0;
	size_t star = std::string_view::npos;
	size_t behind_run = 0;
	while (at < name.size()) {
		if (pattern_at < pattern.size() && pattern[pattern_at] == '*') {
			star = pattern_at++;
			behind_run = at;
		} else if (pattern_at < pattern.size() &&
			   (pattern[pattern_at] == '?' || small(pattern[pattern_at]) == small(name[at]))) {
			++pattern_at;
			++at;
		} else if (star != std::string_view::npos) {
			pattern_at = star + 1;
			at = ++behind_run;
		} else {
			return false;
		}
	}
	return pattern.find_first_not_of('*', pattern_at) == std::string_view::npos;
}

bool CacheSelection::takes(const CachedAddress &entry) const
{
	if (row && (entry.gardens >> *row & 1) == 0) {
		return false;
	}
	if (address && entry.address != *address) {
		return false;
	}
	return !name ||
	       std::ranges::any_of(entry.names, [this](const std::string &known) { return is_like(known, *name); });
}

CacheSelection parse_cache_selection(const std::string &interface, const std::string &name, const std::string &address)
{
	CacheSelection selection;
	if (!interface.empty()) {
		selection.row = parse_row(interface).row;
	}
	if (!name.empty()) {
		selection.name = name;
	}
	if (!address.empty()) {
		selection.address = format_ipv4(parse_ipv4(address));
	}
	return selection;
}

std::vector<std::string> garden_names(uint32_t gardens)
{
	std::vector<std::string> names;
	for (uint32_t row = 0; row < CP_ROWS; ++row) {
		if ((gardens >> row & 1) != 0) {
			names.push_back(interface_of_row(row).name);
		}
	}
	return names;
}

} // namespace cpctl
