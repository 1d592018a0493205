// SPDX-License-Identifier: GPL-2.0-only
// The module's lines in the kernel log, and what each means.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace cpctl
{

// What a line has for one of its fields, by the field's name.
using LogFields = std::vector<std::pair<std::string, std::string>>;

struct LogDecoder {
	// As the module prints it: its own text, letter for letter.
	std::string_view format;
	// What happened, for programs: the same word always, and only for lines of this kind. Two formats that print the
	// same lines share theirs.
	std::string_view event;
	// A word for each conversion of the format: the field's name, behind it maybe a slash and what the number stands
	// for (row, rows, port, mode ...); or "-" for what tells an administrator nothing.
	std::string_view fields;
	// What happened, for people, with {names} of fields.
	std::string_view sentence;
	// Changes fields that depend on one another; null where none does.
	void (*mend)(LogFields &fields) = nullptr;
};

[[nodiscard]] std::span<const LogDecoder> log_decoders();

struct DecodedLine {
	std::string_view event;
	LogFields fields;
	std::string sentence;
};

// Nothing for a line that the module does not print.
[[nodiscard]] std::optional<DecodedLine> decode_log_line(std::string_view line);

} // namespace cpctl
