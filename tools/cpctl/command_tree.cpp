// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/command_tree.h"

#include <array>
#include <charconv>
#include <optional>

#include <CLI/CLI.hpp>

namespace cpctl
{

namespace
{

struct InterfaceNumbers {
	unsigned radio = 0;
	unsigned vap = 0;
};

[[nodiscard]] std::optional<unsigned> number(std::string_view word)
{
	unsigned value = 0;
	const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
	if (error != std::errc() || end != word.data() + word.size()) {
		return std::nullopt;
	}
	return value;
}

constexpr std::string_view interface_prefix = "wlan-";

[[nodiscard]] std::optional<InterfaceNumbers> interface_numbers(std::string_view word)
{
	if (!word.starts_with(interface_prefix)) {
		return std::nullopt;
	}
	word.remove_prefix(interface_prefix.size());
	const size_t dash = word.find('-');
	if (dash == std::string_view::npos) {
		return std::nullopt;
	}
	const auto radio = number(word.substr(0, dash));
	const auto vap = number(word.substr(dash + 1));
	if (!radio || !vap) {
		return std::nullopt;
	}
	return InterfaceNumbers{.radio = *radio, .vap = *vap};
}

// Numbers up to this are worth offering.
constexpr unsigned longest_number_range = 32;

// The words of a range; false when it is none that can be written out.
bool add_range(std::vector<std::string> &words, std::string_view first, std::string_view last)
{
	const auto first_interface = interface_numbers(first);
	const auto last_interface = interface_numbers(last);
	if (first_interface && last_interface) {
		for (unsigned radio = first_interface->radio; radio <= last_interface->radio; radio++) {
			for (unsigned vap = first_interface->vap; vap <= last_interface->vap; vap++) {
				words.push_back(std::string(interface_prefix) + std::to_string(radio) + "-" +
						std::to_string(vap));
			}
		}
		return true;
	}
	const auto first_number = number(first);
	const auto last_number = number(last);
	if (!first_number || !last_number || *last_number > longest_number_range) {
		return false;
	}
	for (unsigned value = *first_number; value <= *last_number; value++) {
		words.push_back(std::to_string(value));
	}
	return true;
}

[[nodiscard]] bool is_plain_word(std::string_view text)
{
	return !text.empty() && text.front() >= 'a' && text.front() <= 'z' &&
	       text.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-") == std::string_view::npos;
}

[[nodiscard]] std::string_view trimmed(std::string_view text)
{
	while (!text.empty() && text.front() == ' ') {
		text.remove_prefix(1);
	}
	while (!text.empty() && text.back() == ' ') {
		text.remove_suffix(1);
	}
	return text;
}

// What stands between commas, or before and behind a separating word.
[[nodiscard]] std::vector<std::string> items(std::string_view text)
{
	std::vector<std::string> found(1);
	while (!text.empty()) {
		bool separated = false;
		for (const std::string_view separator : {",", " or ", " and "}) {
			if (text.starts_with(separator)) {
				found.emplace_back();
				// The blank behind a comma may be that of an "or".
				text.remove_prefix(separator == "," ? 1 : separator.size() - 1);
				separated = true;
				break;
			}
		}
		if (!separated) {
			found.back() += text.front();
			text.remove_prefix(1);
		}
	}
	return found;
}

[[nodiscard]] std::string without_parentheses(std::string_view text)
{
	std::string kept;
	unsigned depth = 0;
	for (const char sign : text) {
		depth += sign == '(' ? 1 : 0;
		if (depth == 0) {
			kept += sign;
		}
		depth -= sign == ')' && depth != 0 ? 1 : 0;
	}
	return kept;
}

[[nodiscard]] CommandOption option_of(const CLI::Option &option)
{
	CommandOption found;
	for (const std::string &name : option.get_snames()) {
		found.names.push_back("-" + name);
	}
	for (const std::string &name : option.get_lnames()) {
		found.names.push_back("--" + name);
	}
	if (option.get_items_expected_max() != 0) {
		found.value = option.get_type_name();
	}
	found.description = option.get_description();
	return found;
}

[[nodiscard]] Parameter parameter_of(const CLI::Option &option)
{
	return {
		.name = option.get_single_name(),
		.description = option.get_description(),
		.required = option.get_required(),
		.repeated = option.get_items_expected_max() > 1,
	};
}

} // namespace

Command command_tree(const CLI::App &app)
{
	Command command{.name = app.get_name(),
			.description = app.get_description(),
			.footer = app.get_footer(),
			.options = {},
			.parameters = {},
			.commands = {}};
	for (const CLI::Option *option : app.get_options([](const CLI::Option *) { return true; })) {
		if (option->get_positional()) {
			command.parameters.push_back(parameter_of(*option));
		} else {
			command.options.push_back(option_of(*option));
		}
	}
	for (const CLI::App *subcommand : app.get_subcommands([](const CLI::App *) { return true; })) {
		command.commands.push_back(command_tree(*subcommand));
	}
	return command;
}

std::vector<std::string> listed_words(std::string_view description)
{
	const std::string list = without_parentheses(description.substr(0, description.find_first_of(":;")));
	std::vector<std::string> words;
	for (const std::string &item : items(list)) {
		const std::string_view text = trimmed(item);
		const size_t to = text.find(" to ");
		if (to != std::string_view::npos) {
			// "Only wlan-1-1 to wlan-3-8": what is before the range says what it is for.
			const std::string_view first = trimmed(text.substr(0, to));
			if (add_range(words, first.substr(first.rfind(' ') + 1), trimmed(text.substr(to + 4)))) {
				continue;
			}
		}
		if (is_plain_word(text)) {
			words.emplace_back(text);
		}
	}
	return words;
}

} // namespace cpctl
