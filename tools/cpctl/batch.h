// SPDX-License-Identifier: GPL-2.0-only
// Many commands with one opening of the device.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cpctl/client_changes.h"
#include "cpctl/command_words.h"
#include "cpctl/session.h"

namespace cpctl
{

struct ParsedCommand {
	// May be empty where there is a client.
	Action action = {};
	// Of `client add` and `client del`: neighbours of this kind run together.
	std::optional<ClientChange> client = {};
	// Whether it sets what a configuration has.
	bool sets = false;
	// Why it would do nothing; empty when it does something. Only a saved configuration may have such a command: a daemon
	// had stored that.
	std::string without_effect = {};
};

struct PlacedCommand {
	// For messages: "FILE:LINE", or the command itself.
	std::string place;
	ParsedCommand command;
};

enum class TakenCommands { all, settings };

// Checks every line. Throws Failure(usage) with all mistakes, a line each.
[[nodiscard]] std::vector<PlacedCommand> parse_commands(const ParseCommand &parse,
							const std::vector<CommandWords> &lines, const std::string &name,
							TakenCommands taken);

// Runs them in their order. Throws Failure with the place of the first that failed and how many were run; when it goes on
// after failures, says each and throws at the end.
void run_commands(const Session &session, const std::vector<PlacedCommand> &commands, AfterFailure after_failure);

// The commands of a file; "-" is the standard input. They are read and checked when this runs, which is before the device
// is opened.
[[nodiscard]] Action run_batch(const std::string &file, AfterFailure after_failure);

// The whole of a file; "-" is the standard input. Throws Failure(unavailable).
[[nodiscard]] std::string read_text(const Session &session, const std::string &file);

} // namespace cpctl
