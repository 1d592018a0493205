// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/client_lists.h"

namespace cpctl
{

ClientLists read_client_lists(const ReadStatusFile &read_status_file)
{
	ClientLists lists;
	// The clients of a list stand together.
	auto list = lists.end();
	for (const StatusLine &line : parse_status_lines(read_status_file("clients"))) {
		if (line.keyword() != "client") {
			continue;
		}
		const std::pair<std::string, std::string> name = {line.text("table"),
								  line.find("interface").value_or("")};
		if (list == lists.end() || list->first != name) {
			list = lists.try_emplace(name).first;
		}
		list->second.push_back(line.mac("mac"));
	}
	return lists;
}

} // namespace cpctl
