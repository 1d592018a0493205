// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/completion.h"

#include <algorithm>
#include <array>
#include <sstream>

namespace cpctl
{

namespace
{

constexpr std::string_view file_names = ":files\n";

class Answer
{
public:
	explicit Answer(std::string_view typed) : typed_(typed) {}

	void add(std::string_view word, std::string_view description)
	{
		if (!word.starts_with(typed_)) {
			return;
		}
		text_ += word;
		text_ += '\t';
		text_ += description;
		text_ += '\n';
	}
	[[nodiscard]] const std::string &text() const { return text_; }

private:
	std::string_view typed_;
	std::string text_;
};

// Parameters and values of this kind are names of files.
[[nodiscard]] bool is_file(std::string_view name)
{
	return name == "FILE" || name == "PATH" || name == "MODULE";
}

[[nodiscard]] bool is_option(std::string_view word)
{
	return word.size() > 1 && word.front() == '-';
}

// The option among those of the command and of the words that led to it.
[[nodiscard]] const CommandOption *find_option(std::span<const Command *const> path, std::string_view name)
{
	for (const Command *command : path) {
		for (const CommandOption &option : command->options) {
			if (std::ranges::find(option.names, name) != option.names.end()) {
				return &option;
			}
		}
	}
	return nullptr;
}

[[nodiscard]] std::vector<std::string> split(const std::string &text, char separator)
{
	std::vector<std::string> parts;
	std::istringstream stream(text);
	for (std::string part; std::getline(stream, part, separator);) {
		parts.push_back(part);
	}
	return parts;
}

// A setting of a footer: a line of two blanks, its name, and what its values may be, as in
// "  disconnection drop-all|pass-all|NUMBER connected|disconnected   when ...".
struct Setting {
	std::string name;
	std::vector<std::vector<std::string>> values;
	std::string description;
};

[[nodiscard]] std::vector<Setting> settings_of(const std::string &footer)
{
	std::vector<Setting> settings;
	for (const std::string &line : split(footer, '\n')) {
		if (!line.starts_with("  ") || line.starts_with("   ")) {
			continue;
		}
		const size_t gap = std::min(line.find("  ", 2), line.size());
		const std::vector<std::string> words = split(line.substr(2, gap - 2), ' ');
		Setting setting{.name = words.front(), .values = {}, .description = {}};
		for (auto word = words.begin() + 1; word != words.end(); ++word) {
			setting.values.push_back(split(*word, '|'));
		}
		const size_t text = line.find_first_not_of(' ', gap);
		setting.description = text == std::string::npos ? "" : line.substr(text);
		settings.push_back(setting);
	}
	return settings;
}

[[nodiscard]] std::vector<std::string> interface_words()
{
	return listed_words("wlan-1-1 to wlan-3-8");
}

// Names and values take turns: a name says how many values follow it.
void add_settings(Answer &answer, const std::vector<Setting> &settings, std::span<const std::string> given)
{
	while (!given.empty()) {
		const auto setting = std::ranges::find(settings, given.front(), &Setting::name);
		if (setting == settings.end()) {
			return;
		}
		given = given.subspan(1);
		if (given.size() < setting->values.size()) {
			for (const std::string &value : setting->values[given.size()]) {
				for (const std::string &word :
				     value == "IFACE" ? interface_words() : listed_words(value)) {
					answer.add(word, setting->description);
				}
			}
			return;
		}
		given = given.subspan(setting->values.size());
	}
	for (const Setting &setting : settings) {
		answer.add(setting.name, setting.description);
	}
}

// Interfaces where a description says what leaving them out means.
[[nodiscard]] std::vector<std::string> words_of(const Parameter &parameter)
{
	std::vector<std::string> words = listed_words(parameter.description);
	if (words.empty() && parameter.name == "IFACE") {
		words = interface_words();
	}
	return words;
}

[[nodiscard]] std::string complete_option(const CommandOption &option, std::string_view typed)
{
	if (is_file(option.value)) {
		return std::string(file_names);
	}
	Answer answer(typed);
	const size_t list = option.description.find(": ");
	for (const std::string &word :
	     listed_words(list == std::string::npos ? option.description : option.description.substr(list + 2))) {
		answer.add(word, option.description);
	}
	return answer.text();
}

[[nodiscard]] std::string complete_parameter(const Command &command, std::span<const std::string> given,
					     std::string_view typed)
{
	if (command.parameters.empty()) {
		return {};
	}
	const size_t last = command.parameters.size() - 1;
	const size_t place = std::min(given.size(), last);
	const Parameter &parameter = command.parameters[place];
	if (given.size() > last && !parameter.repeated) {
		return {};
	}
	if (is_file(parameter.name)) {
		return std::string(file_names);
	}
	Answer answer(typed);
	if (parameter.repeated && (parameter.name == "SETTINGS" || parameter.name == "FRAME")) {
		add_settings(answer, settings_of(command.footer), given.subspan(place));
		return answer.text();
	}
	for (const std::string &word : words_of(parameter)) {
		answer.add(word, parameter.name);
	}
	return answer.text();
}

} // namespace

std::string complete(const Command &top, std::span<const std::string> words)
{
	if (words.empty()) {
		return {};
	}
	const std::string &typed = words.back();
	std::vector<const Command *> path = {&top};
	std::vector<std::string> given;
	const CommandOption *awaited = nullptr;
	for (const std::string &word : words.first(words.size() - 1)) {
		if (awaited != nullptr) {
			awaited = nullptr;
			continue;
		}
		if (is_option(word)) {
			const CommandOption *option = find_option(path, word);
			awaited = option != nullptr && !option->value.empty() ? option : nullptr;
			continue;
		}
		const auto &commands = path.back()->commands;
		const auto command = std::ranges::find(commands, word, &Command::name);
		if (command != commands.end() && given.empty()) {
			path.push_back(&*command);
		} else {
			given.push_back(word);
		}
	}
	if (awaited != nullptr) {
		return complete_option(*awaited, typed);
	}
	if (typed.starts_with('-')) {
		Answer answer(typed);
		for (auto command = path.rbegin(); command != path.rend(); ++command) {
			for (const CommandOption &option : (*command)->options) {
				// Every word has a --help; that of the last one is meant.
				if (command != path.rbegin() && option.names.back() == "--help") {
					continue;
				}
				for (const std::string &name : option.names) {
					answer.add(name, option.description);
				}
			}
		}
		return answer.text();
	}
	if (path.back()->commands.empty()) {
		return complete_parameter(*path.back(), given, typed);
	}
	Answer answer(typed);
	if (given.empty()) {
		for (const Command &command : path.back()->commands) {
			answer.add(command.name, command.description);
		}
	}
	return answer.text();
}

} // namespace cpctl
