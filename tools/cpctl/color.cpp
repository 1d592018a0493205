// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/color.h"

#include "cpctl/failure.h"
#include "cpctl/quoted.h"

namespace cpctl
{

namespace
{

// Only the eight colours that every terminal has, so that they go with its background.
std::string_view code_of(Hue hue)
{
	switch (hue) {
	case Hue::name:
		return "36";
	case Hue::address:
		return "35";
	case Hue::addition:
	case Hue::good:
		return "32";
	case Hue::removal:
		return "31";
	case Hue::warning:
		return "33";
	case Hue::error:
		return "1;31";
	case Hue::quiet:
		return "2";
	}
	return "0";
}

} // namespace

ColorChoice parse_color_choice(std::string_view word)
{
	if (word == "auto") {
		return ColorChoice::automatic;
	}
	if (word == "always") {
		return ColorChoice::always;
	}
	if (word == "never") {
		return ColorChoice::never;
	}
	throw usage_failure("--color takes auto, always or never, not " + quoted(word));
}

bool wants_color(ColorChoice choice, bool is_terminal, std::string_view no_color, std::string_view term)
{
	if (choice != ColorChoice::automatic) {
		return choice == ColorChoice::always;
	}
	return is_terminal && no_color.empty() && term != "dumb";
}

std::string Paint::operator()(Hue hue, std::string_view text) const
{
	if (!on_ || text.empty()) {
		return std::string(text);
	}
	return "\x1b[" + std::string(code_of(hue)) + "m" + std::string(text) + "\x1b[0m";
}

} // namespace cpctl
