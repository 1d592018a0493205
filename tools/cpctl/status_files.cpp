// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/status_files.h"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <iterator>

#include "cpctl/failure.h"
#include "cpctl/quoted.h"

namespace cpctl
{

namespace
{

constexpr size_t octal_digits = 3;

[[nodiscard]] Failure not_understood(std::string_view line)
{
	return {ExitCode::unavailable, "the module's status has a line that cpctl does not understand, " +
					       quoted(line) + ": is this cpctl as new as the module?"};
}

// Undoes a backslash and three octal digits.
std::string unescape(std::string_view text, std::string_view line)
{
	std::string plain;
	for (size_t i = 0; i < text.size(); i++) {
		if (text[i] != '\\') {
			plain += text[i];
			continue;
		}
		unsigned byte = 0;
		const std::string_view digits = text.substr(i + 1, octal_digits);
		const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), byte, 8);
		if (error != std::errc() || end != digits.data() + octal_digits || byte > UINT8_MAX) {
			throw not_understood(line);
		}
		plain += static_cast<char>(byte);
		i += octal_digits;
	}
	return plain;
}

// The first word of the text, which loses it and the blank behind it.
std::string_view take_word(std::string_view &text)
{
	const std::string_view word = text.substr(0, text.find(' '));
	text.remove_prefix(std::min(text.size(), word.size() + 1));
	return word;
}

std::string reason_and_remedy(int error)
{
	switch (error) {
	case ENOENT:
		return "there is no such file: load the module (modprobe captive_portal)";
	case EACCES:
	case EPERM:
		return "permission denied: run cpctl as root";
	default:
		return std::strerror(error);
	}
}

} // namespace

std::string read_kernel_status_file(const std::string &directory, const std::string &name)
{
	const std::string path = directory + "/" + name;
	errno = 0;
	try {
		std::ifstream file;
		file.exceptions(std::ios::failbit | std::ios::badbit);
		file.open(path);
		return {std::istreambuf_iterator<char>(file), {}};
	} catch (const std::ios_base::failure &) {
		throw Failure(ExitCode::unavailable, path + ": " + reason_and_remedy(errno != 0 ? errno : EIO));
	}
}

StatusLine::StatusLine(std::string_view line)
{
	std::string_view rest = line;
	keyword_ = take_word(rest);
	while (!rest.empty()) {
		const std::string_view word = take_word(rest);
		const size_t equals = word.find('=');
		if (equals == std::string_view::npos) {
			throw not_understood(line);
		}
		pairs_.emplace_back(word.substr(0, equals), unescape(word.substr(equals + 1), line));
	}
}

const std::string *StatusLine::find(std::string_view key) const
{
	for (const auto &[name, value] : pairs_) {
		if (name == key) {
			return &value;
		}
	}
	return nullptr;
}

const std::string &StatusLine::text(std::string_view key) const
{
	if (const std::string *const value = find(key)) {
		return *value;
	}
	throw Failure(ExitCode::unavailable, "the module's status does not say " + std::string(key) + " of " +
						     keyword_ + ": is this cpctl as new as the module?");
}

int64_t StatusLine::number(std::string_view key) const
{
	std::string_view digits = text(key);
	int base = 10;
	if (digits.starts_with("0x")) {
		digits.remove_prefix(2);
		base = 16;
	}
	int64_t value = 0;
	const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, base);
	if (error != std::errc() || end != digits.data() + digits.size()) {
		throw not_understood(std::string(key) + "=" + text(key));
	}
	return value;
}

std::vector<StatusLine> parse_status_lines(std::string_view text)
{
	std::vector<StatusLine> lines;
	while (!text.empty()) {
		const size_t end = std::min(text.find('\n'), text.size());
		lines.emplace_back(text.substr(0, end));
		text.remove_prefix(std::min(end + 1, text.size()));
	}
	return lines;
}

} // namespace cpctl
