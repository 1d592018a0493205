// SPDX-License-Identifier: GPL-2.0-only
// The longest hold of each lock in each operation at its largest size, as JSON. "full" is false where
// that would have taken too long and a smaller size was measured. Built twice: one program counts entries,
// the other reads the clock.
#include <algorithm>
#include <chrono>
#include <cstdio>

#include "bench/holds.h"
#include "bench/operation.h"

namespace
{

using namespace captive_portal::bench;

constexpr const char *lock_names[CP_LOCKS] = {
	"gatekeeper_lock", "cp_lock", "gateway_lock", "change_ip_port_lock", "dns_list_lock", "walledgarden_lock",
};

#ifdef CP_BENCH_COUNT_ENTRIES
constexpr const char *figure = "entries";
constexpr uint64_t LongestHold::*member = &LongestHold::entries;
// The counts are the same each time.
constexpr int repetitions = 1;
#else
constexpr const char *figure = "nanoseconds";
constexpr uint64_t LongestHold::*member = &LongestHold::nanoseconds;
constexpr int repetitions = 3;
#endif

constexpr double longest_wait = 8;

double seconds_of(Case &measured)
{
	const auto start = std::chrono::steady_clock::now();
	measured.run(0);
	return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

using Longest = std::array<LongestHold, CP_LOCKS>;

void print(const Operation &operation, uint64_t size, const Longest &longest)
{
	static const char *separator = "";
	for (size_t lock = 0; lock < CP_LOCKS; ++lock) {
		if (longest[lock].holds != 0) {
			std::printf("%s{\"operation\": \"%s\", \"size\": %llu, \"full\": %s, \"lock\": \"%s\", "
				    "\"holds\": %llu, \"%s\": %llu}",
				    separator, operation.name.c_str(), static_cast<unsigned long long>(size),
				    size == operation.sizes.back() ? "true" : "false", lock_names[lock],
				    static_cast<unsigned long long>(longest[lock].holds), figure,
				    static_cast<unsigned long long>(longest[lock].*member));
			separator = ",\n";
		}
	}
}

// Goes up to the largest size, or to the last one before a run would take too long.
void measure(const Operation &operation)
{
	Longest longest{};
	uint64_t size = 0;
	double last_seconds = 0;
	for (size_t i = operation.sizes.size() < 2 ? 0 : operation.sizes.size() - 2; i < operation.sizes.size(); ++i) {
		const double growth =
			i == 0 ? 1 :
				 static_cast<double>(operation.sizes[i]) /
					 static_cast<double>(std::max<uint64_t>(operation.sizes[i - 1], 1));
		if (last_seconds * growth > longest_wait) {
			break;
		}
		size = operation.sizes[i];
		const std::unique_ptr<Case> measured = operation.make(size);
		for (int repetition = 0; repetition < repetitions; ++repetition) {
			measured->restore(1);
			watch_holds();
			last_seconds = seconds_of(*measured);
			const Longest holds = longest_holds();
			// Least of the repetitions: an interruption is not the module's.
			for (size_t lock = 0; lock < CP_LOCKS; ++lock) {
				if (repetition == 0 || holds[lock].*member < longest[lock].*member) {
					longest[lock] = holds[lock];
				}
			}
			if (last_seconds > 0.5) {
				break;
			}
		}
	}
	print(operation, size, longest);
}

} // namespace

int main()
{
	std::printf("[\n");
	for (const Operation &operation : all_operations()) {
		if (!operation.baseline.empty()) {
			measure(operation);
		}
	}
	std::printf("\n]\n");
	return 0;
}
