// SPDX-License-Identifier: GPL-2.0-only
// Words of the command line inside a message.
#pragma once

#include <string>
#include <string_view>

namespace cpctl
{

// The word between single quotes, control characters as '?', so that a message can do nothing to a terminal.
[[nodiscard]] inline std::string quoted(std::string_view word)
{
	std::string text = "'";
	for (const char character : word) {
		const bool control = static_cast<unsigned char>(character) < ' ' || character == '\x7f';
		text += control ? '?' : character;
	}
	return text + "'";
}

// The text with '?' in the place of all that is not printable ASCII: what others chose, for a terminal.
[[nodiscard]] inline std::string printable(std::string_view text)
{
	std::string shown(text);
	for (char &character : shown) {
		if (character < ' ' || character > '~') {
			character = '?';
		}
	}
	return shown;
}

} // namespace cpctl
