// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/client_tables.h"

#include <algorithm>
#include <string>

#include "cpctl/failure.h"
#include "cpctl/quoted.h"

namespace cpctl
{

std::span<const ClientTable> client_tables()
{
	return libcaptiveportal::client_tables;
}

const ClientTable &find_client_table(std::string_view name)
{
	const auto found = std::ranges::find(client_tables(), name, &ClientTable::name);
	if (found != client_tables().end()) {
		return *found;
	}
	std::string known;
	for (const ClientTable &table : client_tables()) {
		known += known.empty() ? "" : ", ";
		known += table.name;
	}
	throw usage_failure(quoted(name) + " is no table of clients: choose one of " + known);
}

} // namespace cpctl
