// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/status_files.h"

#include <memory>

#include "captiveportal.h"
#include "cpctl/library.h"
#include "cpctl/quoted.h"

namespace cpctl
{

std::string read_kernel_status_file(const std::string &name)
{
	char *text = nullptr;
	size_t length = 0;
	static_cast<void>(judged(captiveportal_read_status(nullptr, name.c_str(), &text, &length)));
	const std::unique_ptr<char, void (*)(void *)> owned(text, captiveportal_free);
	return {text, length};
}

std::optional<std::string> StatusLine::find(std::string_view key) const
{
	const captiveportal_line line = {line_.data(), line_.size()};
	std::string value(line_.size() + 1, '\0'); // no value is longer than its line
	if (captiveportal_line_text(&line, std::string(key).c_str(), value.data(), value.size()) != CAPTIVEPORTAL_OK) {
		return std::nullopt;
	}
	value.resize(value.find('\0'));
	return value;
}

std::string StatusLine::text(std::string_view key) const
{
	if (std::optional<std::string> value = find(key)) {
		return *std::move(value);
	}
	throw Failure(ExitCode::unavailable, "the module's status does not say " + std::string(key) + " of " +
						     keyword() + ": is this cpctl as new as the module?");
}

int64_t StatusLine::number(std::string_view key) const
{
	const std::string value = text(key);
	const captiveportal_line line = {line_.data(), line_.size()};
	int64_t number = 0;
	if (captiveportal_line_number(&line, std::string(key).c_str(), &number) != CAPTIVEPORTAL_OK) {
		throw unexpected(key, value, "a number");
	}
	return number;
}

MacAddress StatusLine::mac(std::string_view key) const
{
	const std::string value = text(key);
	try {
		return parse_mac(value);
	} catch (const Failure &) {
		throw unexpected(key, value, "a MAC address");
	}
}

Failure StatusLine::unexpected(std::string_view key, const std::string &value, std::string_view wanted)
{
	return {ExitCode::unavailable, "the module's status says " + quoted(std::string(key) + "=" + value) +
					       ", where " + std::string(wanted) +
					       " should be: is this cpctl as new as the module?"};
}

std::vector<StatusLine> parse_status_lines(const std::string &text)
{
	std::vector<StatusLine> lines;
	const char *cursor = text.c_str();
	captiveportal_line line{};
	while (captiveportal_next_line(&cursor, &line) != 0) {
		lines.emplace_back(std::string(line.text, line.length));
	}
	return lines;
}

} // namespace cpctl
