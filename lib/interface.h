// SPDX-License-Identifier: GPL-2.0-only
// What every function of the C interface begins and ends with.
#pragma once

#include <string>
#include <string_view>

#include "lib/captiveportal.h"

namespace libcaptiveportal
{

// Gives the result of the exception that is being handled, and keeps its text for captiveportal_error_text() and its
// error number in errno. Called in a catch clause.
[[nodiscard]] int result_of_exception() noexcept;

// Runs what a function does; no exception leaves it.
template <typename Body> [[nodiscard]] int guarded(Body &&body) noexcept
{
	try {
		return body();
	} catch (...) {
		return result_of_exception();
	}
}

// The text that a caller gave; none for NULL.
[[nodiscard]] inline std::string_view word_of(const char *text)
{
	return text != nullptr ? std::string_view(text) : std::string_view();
}

// The pointer, which is no NULL; a failure names what is missing.
template <typename Pointee> [[nodiscard]] Pointee &given(Pointee *pointer, const char *what);

// The word between single quotes, control characters as '?', cut where it is very long.
[[nodiscard]] std::string quoted(std::string_view word);

// Fills a field with the text and NULs, so that it ends with one.
template <size_t size> void store_text(char (&field)[size], std::string_view text)
{
	for (size_t i = 0; i < size; i++) {
		field[i] = i < text.size() && i + 1 < size ? text[i] : '\0';
	}
}

// As store_text(), of an array whose size the language does not pass on.
void store_text(char *field, size_t size, std::string_view text);

// The text of a field: up to its NUL, or the whole field.
template <size_t size> [[nodiscard]] std::string_view text_of(const char (&field)[size])
{
	const std::string_view whole(field, size);
	return whole.substr(0, whole.find('\0'));
}

[[noreturn]] void missing_argument(const char *what);

template <typename Pointee> Pointee &given(Pointee *pointer, const char *what)
{
	if (pointer == nullptr) {
		missing_argument(what);
	}
	return *pointer;
}

} // namespace libcaptiveportal
