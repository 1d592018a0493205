// SPDX-License-Identifier: GPL-2.0-only
#include "bench/operation.h"

#include <cstdio>
#include <cstdlib>

namespace captive_portal::bench
{

const std::vector<Operation> &all_operations()
{
	static const std::vector<Operation> list = [] {
		std::vector<Operation> operations;
		add_baselines(operations);
		add_frame_operations(operations);
		add_connection_operations(operations);
		add_name_operations(operations);
		add_cache_operations(operations);
		add_client_table_operations(operations);
		return operations;
	}();
	return list;
}

void require(bool condition, const char *text)
{
	if (!condition) {
		std::fprintf(stderr, "bench: %s\n", text);
		std::abort();
	}
}

} // namespace captive_portal::bench
