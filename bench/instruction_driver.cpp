// SPDX-License-Identifier: GPL-2.0-only
// Runs under valgrind's callgrind. Reads lines "runs size name" and, for each, lets callgrind count the instructions of
// so many runs, then of twice as many (of one: of one again), each from a restored state; setting up and restoring are
// not counted. The counts are written to callgrind's file as "first" and "second", with the line.
#include <valgrind/callgrind.h>

#include <iostream>
#include <sstream>
#include <string>

#include "bench/operation.h"

namespace
{

using namespace captive_portal::bench;

const Operation &find_operation(const std::string &name)
{
	for (const Operation &operation : all_operations()) {
		if (operation.name == name) {
			return operation;
		}
	}
	require(false, "there is no such operation");
	return all_operations().front();
}

void count(Case &measured, uint32_t runs, const std::string &label)
{
	// Ten times faster than with callgrind's instrumentation, which is switched for the count as a whole only:
	// switching it forgets what was counted.
	measured.restore(1);
	CALLGRIND_START_INSTRUMENTATION;
	CALLGRIND_ZERO_STATS;
	for (uint32_t done = 0; done < runs; ++done) {
		if (done != 0) {
			measured.restore(1);
		}
		CALLGRIND_TOGGLE_COLLECT;
		measured.run(0);
		CALLGRIND_TOGGLE_COLLECT;
	}
	CALLGRIND_DUMP_STATS_AT(label.c_str());
	CALLGRIND_STOP_INSTRUMENTATION;
}

} // namespace

int main()
{
	std::string line;
	while (std::getline(std::cin, line)) {
		std::istringstream words(line);
		uint32_t runs = 0;
		uint64_t size = 0;
		std::string name;
		words >> runs >> size;
		std::getline(words >> std::ws, name);
		require(!words.fail(), "a line is not \"runs size name\"");

		const std::unique_ptr<Case> measured = find_operation(name).make(size);
		// What the first run alone does, such as binding a symbol.
		measured->restore(1);
		measured->run(0);
		measured->verify();
		count(*measured, runs, "first " + line);
		count(*measured, runs == 1 ? 1 : 2 * runs, "second " + line);
	}
	return 0;
}
