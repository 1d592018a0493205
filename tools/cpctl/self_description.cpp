// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/self_description.h"

#include "cpctl/command_tree.h"
#include "cpctl/completion.h"
#include "cpctl/manual.h"

namespace cpctl
{

std::optional<std::string> describe_itself(const CLI::App &app, std::span<const std::string> words)
{
	if (!words.empty() && words.front() == "--complete") {
		return complete(command_tree(app), words.subspan(1));
	}
	if (words.size() == 2 && words[0] == "--generate" && words[1] == "man") {
		return manual_sections(command_tree(app));
	}
	return std::nullopt;
}

} // namespace cpctl
