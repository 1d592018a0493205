// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/configuration_commands.h"

#include <sstream>

#include "cpctl/batch.h"
#include "cpctl/configuration_model.h"
#include "cpctl/failure.h"
#include "cpctl/replaced_file.h"

namespace cpctl
{

namespace
{

constexpr std::string_view repeatable =
	"\ncpctl: restoring again is safe: what is done already is left alone, and no client is logged out by it";

// Without its first and last line a file is another's, or was cut short, and the clients behind the cut would be gone.
void require_whole(const std::string &text, const std::string &name)
{
	if (!text.starts_with(std::string(first_line_of_configuration) + "\n")) {
		throw usage_failure(name + " is no saved configuration: its first line is not \"" +
				    std::string(first_line_of_configuration) +
				    "\". To run commands, use cpctl -b FILE");
	}
	const size_t end = text.find_last_not_of(" \t\r\n");
	const std::string_view written = std::string_view(text).substr(0, end + 1);
	if (!written.ends_with("\n" + std::string(last_line_of_configuration))) {
		throw usage_failure(name + " has been cut short: its last line is not \"" +
				    std::string(last_line_of_configuration) + "\"");
	}
}

void show(const Session &session, const ConfigurationChange &change)
{
	if (!change.before.empty()) {
		session.print(session.paint(Hue::removal, "- " + change.before));
	}
	if (!change.after.empty()) {
		session.print(session.paint(Hue::addition, "+ " + change.after));
	}
}

std::vector<PlacedCommand> commands_of(const Session &session, const std::vector<ConfigurationChange> &changes)
{
	std::vector<PlacedCommand> commands;
	for (const ConfigurationChange &change : changes) {
		PlacedCommand command = {change.after.empty() ? "without " + change.before : change.after, {}};
		if (change.client) {
			command.command.client = change.client;
		} else {
			command.command = (*session.parse_command)(change.command);
		}
		commands.push_back(std::move(command));
	}
	return commands;
}

} // namespace

Action save_configuration(const std::string &file)
{
	return [file](const Session &session) {
		const ReadConfiguration read = read_configuration(session.read_status_file);
		const std::string text = text_of_configuration(read.configuration);
		if (file.empty()) {
			session.out << text;
		} else {
			replace_file(file, text, first_line_of_configuration);
		}
		for (const std::string &what : read.without_command) {
			session.note("not saved, because no command of cpctl sets it: " + what);
		}
		if (!read.without_command.empty()) {
			throw refusal("all else was saved; a restore will take away what was not");
		}
	};
}

Action restore_configuration(const std::string &file, RestoreRun run)
{
	return [file, run](const Session &session) {
		const std::string name = file == "-" ? "standard input" : file;
		const Configuration wanted = parse_configuration(session, read_text(session, file), name);
		if (run == RestoreRun::dry) {
			const Configuration running = read_configuration(session.read_status_file).configuration;
			for (const ConfigurationChange &change : changes_between(running, wanted)) {
				show(session, change);
			}
			return;
		}
		(void)apply_configuration(session, wanted);
	};
}

Configuration parse_configuration(const Session &session, const std::string &text, const std::string &name)
{
	require_whole(text, name);
	std::istringstream lines(text);
	const std::vector<PlacedCommand> commands =
		parse_commands(*session.parse_command, read_command_words(lines, name), name, TakenCommands::settings);
	ConfigurationModel model;
	Portal portal(model);
	const ReadStatusFile read_status_file = [&model](const std::string &file) { return model.status_file(file); };
	// What the lines answer is nobody's business; what they warn of is.
	std::ostringstream answers;
	Surroundings quiet = *session.surroundings;
	quiet.err_is_terminal = false;
	const Session in_the_model = {
		.portal = portal,
		.read_status_file = read_status_file,
		.out = answers,
		.err = session.err,
		.surroundings = &quiet,
		.parse_command = session.parse_command,
		.warns_of_rules = false,
	};
	try {
		run_commands(in_the_model, commands, AfterFailure::stop);
	} catch (const Failure &failure) {
		throw usage_failure(std::string(failure.what()) + "\ncpctl: nothing was changed");
	}
	return model.configuration();
}

size_t apply_configuration(const Session &session, const Configuration &wanted)
{
	// The first question opens the device: from then on no other program changes what is read.
	(void)session.portal.gateway();
	const Configuration running = read_configuration(session.read_status_file).configuration;
	const std::vector<ConfigurationChange> changes = changes_between(running, wanted);
	Session silent = session;
	silent.warns_of_rules = false;
	try {
		run_commands(silent, commands_of(session, changes), AfterFailure::stop);
	} catch (const Failure &failure) {
		throw Failure(failure.code(), failure.what() + std::string(repeatable));
	}
	if (changes.empty()) {
		return 0;
	}
	const Configuration restored = read_configuration(session.read_status_file).configuration;
	const std::vector<ConfigurationChange> left = changes_between(restored, wanted);
	if (!left.empty()) {
		const std::string &what = left.front().after.empty() ? left.front().before : left.front().after;
		throw refusal(std::to_string(left.size()) + " settings are not as the file says, the first of them: " +
			      what + ": see the kernel log (dmesg)" + std::string(repeatable));
	}
	return changes.size();
}

} // namespace cpctl
