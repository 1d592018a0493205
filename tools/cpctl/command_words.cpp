// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/command_words.h"

#include <algorithm>

#include "cpctl/failure.h"
#include "cpctl/quoted.h"

namespace cpctl
{

namespace
{

constexpr std::string_view blanks = " \t";

// What stands for itself in a file and in a shell. No * and ?, which a shell takes for files.
constexpr std::string_view plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._:/%+@=,-";

bool is_blank(char character)
{
	return blanks.find(character) != std::string_view::npos;
}

// Takes words off the front of a line.
class LineReader
{
public:
	LineReader(std::string_view line, const std::string &file, size_t number)
	    : rest_(line), file_(file), number_(number)
	{
	}

	std::vector<std::string> words()
	{
		std::vector<std::string> words;
		for (;;) {
			while (!rest_.empty() && is_blank(rest_.front())) {
				rest_.remove_prefix(1);
			}
			if (rest_.empty() || rest_.front() == '#') {
				return words;
			}
			words.push_back(word());
		}
	}

private:
	std::string word()
	{
		std::string text(take_plain());
		while (!rest_.empty() && !is_blank(rest_.front())) {
			const char character = take();
			if (character == '\'' || character == '"') {
				take_quoted(character, text);
			} else if (character == '\\') {
				text += take_escaped();
			} else {
				text += character;
			}
		}
		return text;
	}

	void take_quoted(char mark, std::string &text)
	{
		for (;;) {
			if (rest_.empty()) {
				throw usage_failure(place() + ": a quotation mark (" + mark + ") is not closed");
			}
			const char character = take();
			if (character == mark) {
				return;
			}
			text += character == '\\' && mark == '"' ? take_escaped() : character;
		}
	}

	char take_escaped()
	{
		if (rest_.empty()) {
			throw usage_failure(place() + ": a backslash at the line's end: a command is one line");
		}
		return take();
	}

	// What is the same with quotation and without.
	std::string_view take_plain()
	{
		const std::string_view text = rest_.substr(0, rest_.find_first_of(" \t'\"\\"));
		rest_.remove_prefix(text.size());
		return text;
	}

	char take()
	{
		const char character = rest_.front();
		rest_.remove_prefix(1);
		return character;
	}

	[[nodiscard]] std::string place() const { return place_in_file(file_, number_); }

	std::string_view rest_;
	const std::string &file_;
	size_t number_;
};

} // namespace

std::vector<CommandWords> read_command_words(std::istream &in, const std::string &name)
{
	std::vector<CommandWords> commands;
	std::string line;
	for (size_t number = 1; std::getline(in, line); number++) {
		if (line.ends_with('\r')) {
			line.pop_back();
		}
		const auto is_control = [](char character) {
			return (static_cast<unsigned char>(character) < ' ' && character != '\t') ||
			       character == '\x7f';
		};
		if (std::ranges::any_of(line, is_control)) {
			throw usage_failure(place_in_file(name, number) +
					    ": a control character: this is no file of commands");
		}
		CommandWords command = {number, LineReader(line, name, number).words()};
		if (!command.words.empty()) {
			commands.push_back(std::move(command));
		}
	}
	return commands;
}

std::string quote_word(std::string_view word)
{
	if (!word.empty() && word.find_first_not_of(plain) == std::string_view::npos) {
		return std::string(word);
	}
	if (word.find('\'') == std::string_view::npos) {
		return std::string(1, '\'').append(word).append(1, '\'');
	}
	std::string text(1, '"');
	for (const char character : word) {
		if (std::string_view("\"\\$`").find(character) != std::string_view::npos) {
			text += '\\';
		}
		text += character;
	}
	return text + '"';
}

std::string join_words(const std::vector<std::string> &words)
{
	std::string text;
	for (const std::string &word : words) {
		text += text.empty() ? "" : " ";
		text += quote_word(word);
	}
	return text;
}

std::string place_in_file(const std::string &name, size_t line)
{
	return name + ":" + std::to_string(line);
}

void require_whole_word(std::string_view word)
{
	if (word.starts_with('[') && word.ends_with(']')) {
		throw usage_failure(quoted(word) + " is between square brackets: no name, pattern or address is");
	}
}

} // namespace cpctl
