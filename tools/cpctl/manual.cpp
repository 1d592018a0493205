// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/manual.h"

#include <sstream>

namespace cpctl
{

namespace
{

// Text as the formatter shows it letter for letter.
[[nodiscard]] std::string escaped(std::string_view text)
{
	std::string shown;
	bool line_begins = true;
	for (const char sign : text) {
		if (line_begins && (sign == '.' || sign == '\'')) {
			shown += "\\&";
		}
		if (sign == '\\') {
			shown += "\\e";
		} else if (sign == '-') {
			shown += "\\-";
		} else {
			shown += sign;
		}
		line_begins = sign == '\n';
	}
	return shown;
}

// Each sentence on a line of its own, as the formatter wants it; the last of a help text has no full stop.
[[nodiscard]] std::string sentences(std::string text)
{
	for (size_t end = 0; (end = text.find(". ", end)) != std::string::npos; ++end) {
		text[end + 1] = '\n';
	}
	const bool ended = !text.empty() && text.back() == '.';
	return escaped(text) + (ended ? "\n" : ".\n");
}

[[nodiscard]] std::string option_item(const CommandOption &option)
{
	std::string item = ".It";
	const char *separator = "";
	for (const std::string &name : option.names) {
		item += separator;
		// The macro writes the first dash.
		item += " Fl " + escaped(name.substr(1));
		if (!option.value.empty()) {
			item += " Ar " + escaped(option.value);
		}
		separator = " ,";
	}
	return item + "\n" + sentences(option.description);
}

[[nodiscard]] std::string parameter_words(const Parameter &parameter)
{
	const std::string word = "Ar " + escaped(parameter.name) + (parameter.repeated ? " ..." : "");
	return parameter.required ? word : "Oo " + word + " Oc";
}

void write_footer(std::ostream &out, const std::string &footer)
{
	out << ".Bd -literal\n" << escaped(footer) << (footer.back() == '\n' ? ".Ed\n" : "\n.Ed\n");
}

// `common_footer` is what every command has below its help; once is enough.
void write_command(std::ostream &out, const Command &command, const std::string &words,
		   const std::string &common_footer)
{
	out << ".It Ic " << escaped(words);
	for (const CommandOption &option : command.options) {
		if (option.names.back() != "--help") {
			out << " Oo Fl " << escaped(option.names.back().substr(1));
			if (!option.value.empty()) {
				out << " Ar " << escaped(option.value);
			}
			out << " Oc";
		}
	}
	for (const Parameter &parameter : command.parameters) {
		out << ' ' << parameter_words(parameter);
	}
	out << '\n' << sentences(command.description);
	if (!command.parameters.empty() || command.options.size() > 1) {
		out << ".Bl -tag -width OWE_IFACE -compact\n";
		for (const Parameter &parameter : command.parameters) {
			out << ".It Ar " << escaped(parameter.name) << '\n' << sentences(parameter.description);
		}
		for (const CommandOption &option : command.options) {
			if (option.names.back() != "--help") {
				out << option_item(option);
			}
		}
		out << ".El\n";
	}
	if (!command.footer.empty() && command.footer != common_footer) {
		write_footer(out, command.footer);
	}
}

void write_commands(std::ostream &out, const Command &command, const std::string &words,
		    const std::string &common_footer)
{
	if (command.commands.empty()) {
		write_command(out, command, words, common_footer);
	}
	for (const Command &next : command.commands) {
		write_commands(out, next, words + " " + next.name, common_footer);
	}
}

} // namespace

std::string manual_sections(const Command &top)
{
	std::ostringstream out;
	out << ".Sh OPTIONS\n"
	    << "Options stand anywhere on the command line.\n"
	    << ".Bl -tag -width Ds\n";
	for (const CommandOption &option : top.options) {
		out << option_item(option);
	}
	out << ".El\n"
	    << ".Sh COMMANDS\n";
	for (const Command &object : top.commands) {
		out << ".Ss " << escaped(object.name) << '\n';
		if (!object.commands.empty()) {
			out << sentences(object.description);
		}
		out << ".Bl -tag -width Ds\n";
		write_commands(out, object, object.name, top.footer);
		out << ".El\n";
	}
	return out.str();
}

} // namespace cpctl
