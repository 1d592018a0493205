// SPDX-License-Identifier: GPL-2.0-only
// The module's address cache, as its status file tells it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cpctl/status_files.h"

namespace cpctl
{

struct CachedAddress {
	std::string address;
	// Second of the wall clock behind which it goes.
	int64_t timeout = 0;
	// Bit i: a walled garden of row i permits it.
	uint32_t gardens = 0;
	std::vector<std::string> names = {};
};

// In the module's order. An address that the file has twice, because it came back meanwhile, is one. Throws
// Failure(unavailable).
[[nodiscard]] std::vector<CachedAddress> read_cached_addresses(const ReadStatusFile &read);

// What is asked for; each part may be missing.
struct CacheSelection {
	std::optional<uint32_t> row = std::nullopt;
	std::optional<std::string> address = std::nullopt;
	// With * for any run of characters and ? for one, in any case of letters.
	std::optional<std::string> name = std::nullopt;

	[[nodiscard]] bool takes(const CachedAddress &entry) const;
};

// The selection that the words of a command line mean, empty ones none. Throws Failure(usage).
[[nodiscard]] CacheSelection parse_cache_selection(const std::string &interface, const std::string &name,
						   const std::string &address);

// Whether the name is what the pattern says.
[[nodiscard]] bool is_like(std::string_view name, std::string_view pattern);

// Names of the rows whose bits are set.
[[nodiscard]] std::vector<std::string> garden_names(uint32_t gardens);

} // namespace cpctl
