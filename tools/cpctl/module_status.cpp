// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/module_status.h"

#include "cpctl/failure.h"
#include "cpctl/interface_names.h"

namespace cpctl
{

namespace
{

// The format of the files that this cpctl knows. A newer one may mean something else by the same keys.
constexpr int64_t known_format = 1;

} // namespace

const StatusLine &ModuleStatus::row(uint32_t row) const
{
	for (const StatusLine &line : interfaces) {
		if (line.number("index") == row) {
			return line;
		}
	}
	throw Failure(ExitCode::unavailable, "the module's status does not speak of " + interface_of_row(row).name);
}

ModuleStatus read_module_status(const ReadStatusFile &read_status_file)
{
	const std::vector<StatusLine> lines = parse_status_lines(read_status_file("status"));
	if (lines.empty() || lines.front().keyword() != "module") {
		throw Failure(ExitCode::unavailable, "the module's status does not begin as it should");
	}
	ModuleStatus status = {lines.front(), {}, {}};
	if (status.module.number("format") != known_format) {
		throw Failure(ExitCode::unavailable,
			      "the module's status has format " + status.module.text("format") +
				      ", which this cpctl does not know: install the cpctl that came with the module");
	}
	for (const StatusLine &line : lines) {
		if (line.keyword() == "interface") {
			status.interfaces.push_back(line);
		} else if (line.keyword() == "owe") {
			status.companions.push_back(line);
		}
	}
	return status;
}

} // namespace cpctl
