// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/client_tables.h"

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
	std::string known;
	for (const ClientTable &table : client_tables()) {
		if (table.name == name) {
			return table;
		}
		known += known.empty() ? "" : ", ";
		known += table.name;
	}
	throw usage_failure(quoted(name) + " is no table of clients: choose one of " + known);
}

} // namespace cpctl
