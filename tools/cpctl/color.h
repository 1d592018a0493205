// SPDX-License-Identifier: GPL-2.0-only
// Colours of answers for people.
#pragma once

#include <string>
#include <string_view>

namespace cpctl
{

// What --color asks for.
enum class ColorChoice { automatic, always, never };

// "auto", "always" or "never"; anything else is a usage failure.
[[nodiscard]] ColorChoice parse_color_choice(std::string_view word);

// Whether a stream that may be a terminal is to have colours. By itself (automatic) it has them on a terminal that is not
// "dumb", unless NO_COLOR has a value. `no_color` and `term` are those of the environment, empty when they are not there.
[[nodiscard]] bool wants_color(ColorChoice choice, bool is_terminal, std::string_view no_color, std::string_view term);

// What a piece of text is. The colours themselves are chosen here and nowhere else.
enum class Hue {
	name,
	address,
	addition,
	removal,
	good,
	warning,
	error,
	quiet,
};

// Puts colour around pieces of text, or leaves them as they are.
class Paint
{
public:
	Paint() = default;
	explicit Paint(bool on) : on_(on) {}

	[[nodiscard]] bool on() const { return on_; }
	[[nodiscard]] std::string operator()(Hue hue, std::string_view text) const;

private:
	bool on_ = false;
};

} // namespace cpctl
