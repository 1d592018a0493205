// SPDX-License-Identifier: GPL-2.0-only
#include "lib/status_files.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <fcntl.h>
#include <unistd.h>

#include "lib/failure.h"
#include "lib/handle.h"
#include "lib/interface.h"

namespace libcaptiveportal
{

namespace
{

constexpr std::string_view status_directory = "/proc/captive_portal/";
constexpr size_t octal_digits = 3;
constexpr size_t bytes_of_a_read = 65536;

Failure unreadable(const std::string &path, int error)
{
	switch (error) {
	case ENOENT:
		return {CAPTIVEPORTAL_UNAVAILABLE,
			path + ": there is no such file: load the module (modprobe captive_portal)", error};
	case EACCES:
	case EPERM:
		return {CAPTIVEPORTAL_NO_PERMISSION, path + ": permission denied: run as root", error};
	default:
		return {CAPTIVEPORTAL_UNAVAILABLE, path + ": " + std::strerror(error), error};
	}
}

class File
{
public:
	explicit File(const std::string &path) : descriptor_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
	File(const File &) = delete;
	File &operator=(const File &) = delete;
	~File()
	{
		if (descriptor_ >= 0) {
			::close(descriptor_);
		}
	}

	[[nodiscard]] int descriptor() const { return descriptor_; }

private:
	int descriptor_;
};

std::string read_file(const std::string &path)
{
	const File file(path);
	std::string text;
	ssize_t got = file.descriptor();
	while (got >= 0) {
		const size_t length = text.size();
		text.resize(length + bytes_of_a_read);
		got = ::read(file.descriptor(), &text[length], bytes_of_a_read);
		if (got < 0 && errno == EINTR) {
			got = 0;
		} else if (got == 0) {
			text.resize(length);
			return text;
		}
		text.resize(length + static_cast<size_t>(std::max<ssize_t>(got, 0)));
	}
	throw unreadable(path, errno);
}

// Undoes a backslash and three octal digits; nothing for anything else behind a backslash.
std::optional<std::string> unescape(std::string_view text)
{
	const size_t first = std::min(text.find('\\'), text.size());
	std::string plain(text.substr(0, first));
	for (size_t i = first; i < text.size(); i++) {
		if (text[i] != '\\') {
			plain += text[i];
			continue;
		}
		unsigned byte = 0;
		const std::string_view digits = text.substr(i + 1, octal_digits);
		const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), byte, 8);
		if (error != std::errc() || end != digits.data() + octal_digits || byte > UINT8_MAX) {
			return std::nullopt;
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

} // namespace

std::string read_status_file(const captiveportal *portal, const std::string &name)
{
	// A name, and no way out of the directory.
	if (name.empty() || name.find('/') != std::string::npos || name.front() == '.') {
		throw invalid(quoted(name) + " is no status file: choose status, clients, garden, counters or "
					     "cache");
	}
	const std::string path = std::string(status_directory) + name;
	if (portal == nullptr || portal->transport.read_status == nullptr) {
		return read_file(path);
	}
	char *text = nullptr;
	size_t length = 0;
	const int result = portal->transport.read_status(portal->context, name.c_str(), &text, &length);
	if (result < 0) {
		throw unreadable(path, -result);
	}
	const std::unique_ptr<char, void (*)(void *)> owned(text, std::free);
	return {text, length};
}

std::optional<std::string_view> take_line(std::string_view &text)
{
	if (text.empty()) {
		return std::nullopt;
	}
	const std::string_view line = text.substr(0, text.find('\n'));
	text.remove_prefix(std::min(text.size(), line.size() + 1));
	return line;
}

std::string_view keyword_of(std::string_view line)
{
	return line.substr(0, line.find(' '));
}

std::optional<std::string> value_of(std::string_view line, std::string_view key)
{
	(void)take_word(line);
	while (!line.empty()) {
		const std::string_view word = take_word(line);
		if (word.size() > key.size() && word.starts_with(key) && word[key.size()] == '=') {
			return unescape(word.substr(key.size() + 1));
		}
	}
	return std::nullopt;
}

std::optional<int64_t> number_of(std::string_view line, std::string_view key)
{
	const std::optional<std::string> text = value_of(line, key);
	if (!text) {
		return std::nullopt;
	}
	std::string_view digits = *text;
	int base = 10;
	if (digits.starts_with("0x")) {
		digits.remove_prefix(2);
		base = 16;
	}
	int64_t value = 0;
	const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, base);
	if (error != std::errc() || end != digits.data() + digits.size()) {
		return std::nullopt;
	}
	return value;
}

} // namespace libcaptiveportal

using namespace libcaptiveportal;

namespace
{

std::string_view text_of_line(const captiveportal_line *line)
{
	const captiveportal_line &there = given(line, "line");
	return {there.text, there.length};
}

Failure no_value(const char *key)
{
	return invalid("the line does not say " + quoted(word_of(key)));
}

} // namespace

extern "C" {

int captiveportal_read_status(captiveportal *portal, const char *name, char **text, size_t *length)
{
	return guarded([&] {
		given(text, "place for a text") = nullptr;
		given(length, "place for a length") = 0;
		const std::string content = read_status_file(portal, std::string(word_of(name)));
		auto *const copy = static_cast<char *>(std::malloc(content.size() + 1));
		if (copy == nullptr) {
			throw std::bad_alloc();
		}
		std::memcpy(copy, content.c_str(), content.size() + 1);
		*text = copy;
		*length = content.size();
		return CAPTIVEPORTAL_OK;
	});
}

void captiveportal_free(void *memory)
{
	std::free(memory);
}

int captiveportal_next_line(const char **cursor, captiveportal_line *line)
{
	const char *const start = *cursor;
	if (*start == '\0') {
		return 0;
	}
	// No further than the line feed: a list has thousands of lines.
	const char *const end = strchrnul(start, '\n');
	*line = {start, static_cast<size_t>(end - start)};
	*cursor = *end == '\0' ? end : end + 1;
	return 1;
}

int captiveportal_line_is(const captiveportal_line *line, const char *keyword)
{
	return line != nullptr && keyword_of({line->text, line->length}) == word_of(keyword) ? 1 : 0;
}

int captiveportal_line_text(const captiveportal_line *line, const char *key, char *value, size_t size)
{
	return guarded([&] {
		const std::optional<std::string> text = value_of(text_of_line(line), word_of(key));
		if (!text) {
			throw no_value(key);
		}
		if (text->size() >= size) {
			throw invalid("the value of " + quoted(word_of(key)) + " needs room for " +
				      std::to_string(text->size() + 1) + " bytes");
		}
		store_text(&given(value, "place for a value"), size, *text);
		return CAPTIVEPORTAL_OK;
	});
}

int captiveportal_line_number(const captiveportal_line *line, const char *key, int64_t *value)
{
	return guarded([&] {
		const std::optional<int64_t> number = number_of(text_of_line(line), word_of(key));
		if (!number) {
			throw no_value(key);
		}
		given(value, "place for a number") = *number;
		return CAPTIVEPORTAL_OK;
	});
}
}
