// SPDX-License-Identifier: GPL-2.0-only
#include "platform/host/kernel_log.h"

#include <cstdio>
#include <cstring>
#include <utility>

#include "platform/host/bookkeeping.h"
#include "platform/host/context.h"

namespace captive_portal::host
{

namespace
{

enum class Length { none, half_half, half, one_long, two_longs, size };

// One conversion of a format: the text from '%' up to, without, the length modifier, and what follows it.
struct Conversion {
	std::string flags; // '%', flags, width and precision; asterisks replaced by their numbers
	int precision = -1;
	Length length = Length::none;
	char letter = '\0';
};

template <typename T> std::string print_one(const Conversion &conversion, const char *modifier, T value)
{
	const std::string format = conversion.flags + modifier + conversion.letter;
	char buffer[512];
// The format is put together from one that the compiler has checked at the call of cp_log().
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
	const int length = std::snprintf(buffer, sizeof(buffer), format.c_str(), value);
#pragma GCC diagnostic pop
	if (length < 0 || static_cast<size_t>(length) >= sizeof(buffer)) {
		die("a number of a log line does not fit: %s", format.c_str());
	}
	return buffer;
}

std::string print_string(const Conversion &conversion, const char *string)
{
	if (string == nullptr) {
		string = "(null)";
	}
	const size_t length = conversion.precision >= 0 ? strnlen(string, static_cast<size_t>(conversion.precision)) :
							  std::strlen(string);
	std::string copy(string, length);
	std::string width = conversion.flags;
	if (const size_t dot = width.find('.'); dot != std::string::npos) {
		width.resize(dot);
	}
	if (width == "%") {
		return copy;
	}
	return print_one(Conversion{width, -1, Length::none, 's'}, "", copy.c_str());
}

std::string print_ipv4(const uint8_t *address)
{
	char buffer[16];
	std::snprintf(buffer, sizeof(buffer), "%u.%u.%u.%u", address[0], address[1], address[2], address[3]);
	return buffer;
}

// Both give the argument as the conversion's length reads it, in the widest type.
long long signed_argument(Length length, va_list &arguments)
{
	switch (length) {
	case Length::none:
		break;
	case Length::half_half:
		return static_cast<signed char>(va_arg(arguments, int));
	case Length::half:
		return static_cast<short>(va_arg(arguments, int));
	case Length::one_long:
	case Length::size:
		return va_arg(arguments, long);
	case Length::two_longs:
		return va_arg(arguments, long long);
	}
	return va_arg(arguments, int);
}

unsigned long long unsigned_argument(Length length, va_list &arguments)
{
	switch (length) {
	case Length::none:
		break;
	case Length::half_half:
		return static_cast<unsigned char>(va_arg(arguments, unsigned));
	case Length::half:
		return static_cast<unsigned short>(va_arg(arguments, unsigned));
	case Length::one_long:
	case Length::size:
		return va_arg(arguments, unsigned long);
	case Length::two_longs:
		return va_arg(arguments, unsigned long long);
	}
	return va_arg(arguments, unsigned);
}

// Width or precision.
void print_number(Conversion &conversion, const char *&position, va_list &arguments)
{
	int number = 0;
	if (*position == '*') {
		++position;
		number = va_arg(arguments, int);
	} else {
		while (*position >= '0' && *position <= '9') {
			number = number * 10 + (*position++ - '0');
		}
	}
	conversion.flags += std::to_string(number);
	conversion.precision = number;
}

Conversion parse_conversion(const char *&position, va_list &arguments)
{
	Conversion conversion;
	conversion.flags = "%";
	while (*position != '\0' && std::strchr("-+ #0", *position) != nullptr) {
		conversion.flags += *position++;
	}
	if (*position == '*' || (*position >= '1' && *position <= '9')) {
		print_number(conversion, position, arguments);
		conversion.precision = -1;
	}
	if (*position == '.') {
		++position;
		conversion.flags += '.';
		print_number(conversion, position, arguments);
	}
	const std::pair<const char *, Length> modifiers[] = {
		{"hh", Length::half_half}, {"h", Length::half}, {"ll", Length::two_longs},
		{"l", Length::one_long},   {"z", Length::size},
	};
	for (const auto &[text, length] : modifiers) {
		if (std::strncmp(position, text, std::strlen(text)) == 0) {
			position += std::strlen(text);
			conversion.length = length;
			break;
		}
	}
	conversion.letter = *position;
	if (*position != '\0') {
		++position;
	}
	return conversion;
}

std::string print_conversion(const Conversion &conversion, const char *&position, va_list &arguments)
{
	switch (conversion.letter) {
	case '%':
		return "%";
	case 'd':
	case 'i':
		return print_one(conversion, "ll", signed_argument(conversion.length, arguments));
	case 'c':
		return print_one(conversion, "", va_arg(arguments, int));
	case 'u':
	case 'x':
	case 'X':
	case 'o':
		return print_one(conversion, "ll", unsigned_argument(conversion.length, arguments));
	case 's':
		return print_string(conversion, va_arg(arguments, const char *));
	case 'p': {
		const void *const pointer = va_arg(arguments, const void *);
		if (std::strncmp(position, "I4", 2) == 0) {
			position += 2;
			return print_ipv4(static_cast<const uint8_t *>(pointer));
		}
		return print_one(conversion, "", pointer);
	}
	default:
		die("log format with a conversion that the host kernel does not know: '%c'", conversion.letter);
	}
}

} // namespace

std::string format_kernel_text(const char *format, va_list list)
{
	// A parameter of this type may be a pointer; the copy is the object itself and can be passed on by reference.
	va_list arguments;
	va_copy(arguments, list);
	std::string text;
	for (const char *position = format; *position != '\0';) {
		if (*position != '%') {
			text += *position++;
			continue;
		}
		++position;
		const Conversion conversion = parse_conversion(position, arguments);
		text += print_conversion(conversion, position, arguments);
	}
	va_end(arguments);
	return text;
}

std::ostream &operator<<(std::ostream &stream, const LogLine &line)
{
	return stream << "<" << static_cast<int>(line.level) << "> " << line.text;
}

void KernelLog::write(cp_log_level level, std::string text)
{
	const BookkeepingGuard guard(mutex_);
	if (keep_) {
		lines_.push_back({level, std::move(text)});
	}
}

std::vector<LogLine> KernelLog::lines() const
{
	const BookkeepingGuard guard(mutex_);
	return lines_;
}

std::vector<LogLine> KernelLog::take()
{
	const BookkeepingGuard guard(mutex_);
	return std::exchange(lines_, {});
}

void KernelLog::clear()
{
	const BookkeepingGuard guard(mutex_);
	lines_.clear();
}

void KernelLog::keep(bool on)
{
	const BookkeepingGuard guard(mutex_);
	keep_ = on;
}

} // namespace captive_portal::host
