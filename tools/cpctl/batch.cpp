// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/batch.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <streambuf>

#include "cpctl/client_commands.h"
#include "cpctl/failure.h"

namespace cpctl
{

namespace
{

constexpr size_t most_mistakes_told = 20;

// Runs commands, and neighbouring changes of clients together.
class Run
{
public:
	Run(const Session &session, const std::vector<PlacedCommand> &commands, AfterFailure after_failure)
	    : session_(session), commands_(commands), after_failure_(after_failure),
	      progress_(session.err, *session.surroundings, commands.size())
	{
	}

	void all()
	{
		size_t next = 0;
		while (next < commands_.size()) {
			next = is_client(next) && is_client(next + 1) ? run_clients(next) : run_one(next);
		}
		progress_.clear();
		if (failed_ != 0) {
			throw refusal(std::to_string(failed_) + " of " + std::to_string(commands_.size()) +
				      " commands failed; the others were run");
		}
	}

private:
	// A client between other commands needs its own list alone, and so is no reason to read them all.
	[[nodiscard]] bool is_client(size_t index) const
	{
		return index < commands_.size() && commands_[index].command.client.has_value();
	}

	// Both give the index of the command that comes next.

	size_t run_one(size_t index)
	{
		try {
			const ParsedCommand &command = commands_[index].command;
			(command.client ? change_client(*command.client) : command.action)(session_);
			progress_.step();
		} catch (const Failure &failure) {
			// Without the module or the device nothing else would go better.
			const bool hopeless = failure.code() == ExitCode::unavailable;
			fail(index, failure.what(), index, hopeless ? AfterFailure::stop : after_failure_,
			     failure.code());
		}
		return index + 1;
	}

	size_t run_clients(size_t first)
	{
		std::vector<ClientChange> changes;
		for (size_t index = first; is_client(index); index++) {
			changes.push_back(*commands_[index].command.client);
		}
		ChangedClients changed;
		try {
			changed = change_clients(session_, changes, after_failure_, progress_);
		} catch (const Failure &failure) {
			throw Failure(failure.code(), "from " + commands_[first].place + " on: " + failure.what());
		}
		for (const FailedChange &failure : changed.failed) {
			fail(first + failure.index, failure.text, first + changed.tried - 1, after_failure_,
			     ExitCode::refused);
		}
		return first + changed.tried;
	}

	// The commands up to `last` have been tried.
	void fail(size_t index, const std::string &text, size_t last, AfterFailure after_failure, ExitCode code)
	{
		progress_.clear();
		const std::string said = commands_[index].place + ": " + text;
		if (after_failure == AfterFailure::go_on) {
			session_.note(said);
			++failed_;
			return;
		}
		const size_t left = commands_.size() - last - 1;
		throw Failure(code, said + (left == 0 ? "\ncpctl: it was the last command" :
							"\ncpctl: stopped there: " + std::to_string(left) + " of " +
								std::to_string(commands_.size()) +
								" commands were not tried, the first of them at " +
								commands_[last + 1].place));
	}

	const Session &session_;
	const std::vector<PlacedCommand> &commands_;
	AfterFailure after_failure_;
	Progress progress_;
	size_t failed_ = 0;
};

// Throws std::ios_base::failure for a file that cannot be read.
std::string rest_of(std::streambuf &in)
{
	std::string text;
	std::array<char, 16384> piece;
	for (std::streamsize got = 0; (got = in.sgetn(piece.data(), piece.size())) > 0;) {
		text.append(piece.data(), static_cast<size_t>(got));
	}
	return text;
}

} // namespace

std::vector<PlacedCommand> parse_commands(const ParseCommand &parse, const std::vector<CommandWords> &lines,
					  const std::string &name, TakenCommands taken)
{
	std::vector<PlacedCommand> commands;
	std::string mistakes;
	size_t mistaken = 0;
	for (const CommandWords &line : lines) {
		PlacedCommand command = {place_in_file(name, line.line), {}};
		try {
			command.command = parse(line.words);
			if (taken == TakenCommands::settings && !command.command.sets) {
				throw usage_failure("a configuration has only commands that set something");
			}
			if (taken == TakenCommands::all && !command.command.without_effect.empty()) {
				throw usage_failure(command.command.without_effect);
			}
		} catch (const Failure &failure) {
			if (++mistaken <= most_mistakes_told) {
				mistakes +=
					(mistakes.empty() ? "" : "\ncpctl: ") + command.place + ": " + failure.what();
			}
		}
		commands.push_back(std::move(command));
	}
	if (mistaken > most_mistakes_told) {
		mistakes += "\ncpctl: and " + std::to_string(mistaken - most_mistakes_told) + " more mistakes";
	}
	if (mistaken != 0) {
		throw usage_failure(mistakes + "\ncpctl: nothing was changed");
	}
	return commands;
}

void run_commands(const Session &session, const std::vector<PlacedCommand> &commands, AfterFailure after_failure)
{
	Run(session, commands, after_failure).all();
}

Action run_batch(const std::string &file, AfterFailure after_failure)
{
	return [file, after_failure](const Session &session) {
		std::istringstream text(read_text(session, file));
		const std::string name = file == "-" ? "standard input" : file;
		run_commands(session,
			     parse_commands(*session.parse_command, read_command_words(text, name), name,
					    TakenCommands::all),
			     after_failure);
	};
}

std::string read_text(const Session &session, const std::string &file)
{
	const bool standard_input = file == "-";
	if (standard_input && session.surroundings->in == nullptr) {
		throw Failure(ExitCode::unavailable, "there is no standard input");
	}
	errno = 0;
	try {
		if (standard_input) {
			return rest_of(*session.surroundings->in->rdbuf());
		}
		std::ifstream in;
		in.exceptions(std::ios::failbit | std::ios::badbit);
		in.open(file);
		return rest_of(*in.rdbuf());
	} catch (const std::ios_base::failure &) {
		throw Failure(ExitCode::unavailable,
			      (standard_input ? "standard input" : file) +
				      " cannot be read: " + std::strerror(errno != 0 ? errno : EIO) +
				      ": name a file of commands that you may read, or - for standard input");
	}
}

} // namespace cpctl
