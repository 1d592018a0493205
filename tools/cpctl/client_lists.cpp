// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/client_lists.h"

namespace cpctl
{

ClientLists read_client_lists(const ReadStatusFile &read_status_file)
{
	ClientLists lists;
	for (const StatusLine &line : parse_status_lines(read_status_file("clients"))) {
		if (line.keyword() == "client") {
			const std::string interface = line.has("interface") ? line.text("interface") : "";
			lists[{line.text("table"), interface}].push_back(parse_mac(line.text("mac")));
		}
	}
	return lists;
}

} // namespace cpctl
