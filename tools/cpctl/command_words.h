// SPDX-License-Identifier: GPL-2.0-only
// Files of commands: a line is a command of cpctl without the program's name.
#pragma once

#include <istream>
#include <string>
#include <string_view>
#include <vector>

namespace cpctl
{

struct CommandWords {
	// Of its file, from 1.
	size_t line = 0;
	std::vector<std::string> words;
};

// The commands of a file. Words stand between blanks; '...' and "..." make one word of what is between them, a backslash
// takes the sign behind it as it is (not inside of '...'), and a # at a word's beginning starts a comment, as in a shell.
// Throws Failure(usage) with `name` and the line for a quotation mark that is not closed, and for control characters.
[[nodiscard]] std::vector<CommandWords> read_command_words(std::istream &in, const std::string &name);

// The word as a file, or a shell, takes it.
[[nodiscard]] std::string quote_word(std::string_view word);

// The words with blanks between them, each as quote_word() gives it.
[[nodiscard]] std::string join_words(const std::vector<std::string> &words);

// "NAME:LINE"
[[nodiscard]] std::string place_in_file(const std::string &name, size_t line);

// Throws Failure(usage) for a word between square brackets: the parser of the command line takes "[a,b]" for two words and
// "[*]" for "*".
void require_whole_word(std::string_view word);

} // namespace cpctl
