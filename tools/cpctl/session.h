// SPDX-License-Identifier: GPL-2.0-only
// What a command works with once the device is open.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "cpctl/color.h"
#include "cpctl/portal.h"
#include "cpctl/status_files.h"
#include "cpctl/surroundings.h"

namespace cpctl
{

struct Explaining;

// Whether answers are JSON, and whether with line breaks for people.
enum class JsonOutput { none, compact, pretty };

// A command of a file, checked (batch.h). Throws Failure(usage).
struct ParsedCommand;
using ParseCommand = std::function<ParsedCommand(const std::vector<std::string> &words)>;

struct Session {
	Portal &portal;
	const ReadStatusFile &read_status_file;
	std::ostream &out;
	std::ostream &err;
	JsonOutput json = JsonOutput::none;
	// For pieces of `out`.
	Paint paint = {};
	// For commands that run others, and for those that unload the module; never null in an action.
	const Surroundings *surroundings = nullptr;
	const ParseCommand *parse_command = nullptr;
	// The next command that needs the device opens it again.
	std::function<void()> close_device = {};
	// Off where a configuration is restored: what it has was warned of when it was made.
	bool warns_of_rules = true;
	// For explain alone.
	const Explaining *explaining = nullptr;

	void print(const std::string &line) const { out << line << '\n'; }
	// Says on the error output what is no failure.
	void note(const std::string &text) const { err << "cpctl: " << text << '\n'; }
};

// A command whose arguments are checked; it runs after the whole command line has been understood. Throws Failure.
using Action = std::function<void(const Session &session)>;

} // namespace cpctl
