// SPDX-License-Identifier: GPL-2.0-only
// The module's status files: lines of a keyword and "key=value" pairs. Reading them needs no control device, and disturbs
// nobody who has it open.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace cpctl
{

inline constexpr const char *status_directory = "/proc/captive_portal";

// The whole of the status file of that name; throws Failure(unavailable).
using ReadStatusFile = std::function<std::string(const std::string &name)>;

// Reads the file in that directory. Throws Failure(unavailable) with the reason and the remedy.
[[nodiscard]] std::string read_kernel_status_file(const std::string &directory, const std::string &name);

class StatusLine
{
public:
	// Throws Failure(unavailable) for what is no such line.
	explicit StatusLine(std::string_view line);

	[[nodiscard]] const std::string &keyword() const { return keyword_; }
	[[nodiscard]] bool has(std::string_view key) const { return find(key) != nullptr; }
	// The value, its escapes undone. Throws Failure(unavailable) when the line has no such key.
	[[nodiscard]] const std::string &text(std::string_view key) const;
	// The same of a decimal number, which may have a minus sign, or of a hexadecimal one that begins with 0x.
	[[nodiscard]] int64_t number(std::string_view key) const;

private:
	[[nodiscard]] const std::string *find(std::string_view key) const;

	std::string keyword_;
	std::vector<std::pair<std::string, std::string>> pairs_;
};

[[nodiscard]] std::vector<StatusLine> parse_status_lines(std::string_view text);

} // namespace cpctl
