// SPDX-License-Identifier: GPL-2.0-only
// The module's status files: lines of a keyword and "key=value" pairs. Reading them needs no control device, and disturbs
// nobody who has it open.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cpctl/addresses.h"
#include "cpctl/failure.h"

namespace cpctl
{

// The whole of the status file of that name; throws Failure(unavailable).
using ReadStatusFile = std::function<std::string(const std::string &name)>;

// That of the running module. Throws Failure(unavailable) with the reason and the remedy.
[[nodiscard]] std::string read_kernel_status_file(const std::string &name);

class StatusLine
{
public:
	explicit StatusLine(std::string line) : line_(std::move(line)) {}

	[[nodiscard]] std::string keyword() const { return line_.substr(0, line_.find(' ')); }
	// The value, its escapes undone; nothing when the line has none that can be read.
	[[nodiscard]] std::optional<std::string> find(std::string_view key) const;
	[[nodiscard]] bool has(std::string_view key) const { return find(key).has_value(); }
	// The same; throws Failure(unavailable) when the line has none that can be read.
	[[nodiscard]] std::string text(std::string_view key) const;
	// Of a decimal number, which may have a minus sign, or of a hexadecimal one that begins with 0x.
	[[nodiscard]] int64_t number(std::string_view key) const;
	// The same of a MAC address.
	[[nodiscard]] MacAddress mac(std::string_view key) const;

private:
	// The value is not what it should be.
	[[nodiscard]] static Failure unexpected(std::string_view key, const std::string &value,
						std::string_view wanted);

	std::string line_;
};

[[nodiscard]] std::vector<StatusLine> parse_status_lines(const std::string &text);

} // namespace cpctl
