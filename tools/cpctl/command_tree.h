// SPDX-License-Identifier: GPL-2.0-only
// The command line as data: what it takes, read from the parser that takes it. Completion and manual are made of this, so
// that a new command is in both.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace CLI
{
class App;
}

namespace cpctl
{

// A word at a fixed place behind a command.
struct Parameter {
	std::string name;
	// Begins with the words that may stand there, if they can be listed: see listed_words().
	std::string description;
	bool required = false;
	bool repeated = false;
};

struct CommandOption {
	// With their dashes, as -j and --json.
	std::vector<std::string> names;
	// Empty for one that takes no value.
	std::string value;
	std::string description;
};

struct Command {
	std::string name;
	std::string description;
	std::string footer;
	std::vector<CommandOption> options;
	std::vector<Parameter> parameters;
	std::vector<Command> commands;
};

[[nodiscard]] Command command_tree(const CLI::App &app);

// The words that a description begins with: those between its commas, "or" and "and" up to the first colon or semicolon, if
// they are in small letters. "wlan-1-1 to wlan-3-8" stands for all interfaces between, "0 (nothing) to 3" for four
// numbers. Whoever describes a parameter in this manner has completion for it.
[[nodiscard]] std::vector<std::string> listed_words(std::string_view description);

} // namespace cpctl
