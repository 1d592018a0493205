// SPDX-License-Identifier: GPL-2.0-only
// Each operation at each size as a benchmark of Google Benchmark. The time of one iteration is that of a batch of runs;
// the counters say what one run took, as the median over the batches, so that an interruption does not show.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "bench/operation.h"

namespace
{

using namespace captive_portal::bench;
using Clock = std::chrono::steady_clock;

constexpr double longest_batch = 0.005;
constexpr int64_t many_batches = 150;
constexpr int64_t few_batches = 3;

double seconds_of(Case &measured, uint32_t runs)
{
	measured.restore(runs);
	const Clock::time_point start = Clock::now();
	for (uint32_t number = 0; number < runs; ++number) {
		measured.run(number);
	}
	return std::chrono::duration<double>(Clock::now() - start).count();
}

void measure(benchmark::State &state, const Operation &operation, uint64_t size)
{
	const std::unique_ptr<Case> measured = operation.make(size);
	const double first = seconds_of(*measured, 1);
	measured->verify();
	const double longest_runs = first > 0 ? longest_batch / first : 1e9;
	const uint32_t runs =
		longest_runs < 1 ? 1 : std::min(measured->batch(), static_cast<uint32_t>(std::min(longest_runs, 1e9)));

	std::vector<double> times;
	for ([[maybe_unused]] auto iteration : state) {
		const double seconds = seconds_of(*measured, runs);
		state.SetIterationTime(seconds);
		times.push_back(seconds / runs);
	}
	std::sort(times.begin(), times.end());
	state.SetLabel(operation.unit + '|' + operation.baseline);
	state.counters["size"] = static_cast<double>(size);
	state.counters["runs"] = runs;
	state.counters["median_ns"] = times[times.size() / 2] * 1e9;
	state.counters["fastest_ns"] = times.front() * 1e9;
}

} // namespace

int main(int argc, char **argv)
{
	for (const Operation &operation : all_operations()) {
		for (const uint64_t size : operation.sizes) {
			const std::string name = operation.name + '/' + std::to_string(size);
			const auto body = [&operation, size](benchmark::State &state) {
				measure(state, operation, size);
			};
			benchmark::RegisterBenchmark(name.c_str(), body)
				->UseManualTime()
				->Iterations(size < operation.few_runs_from ? many_batches : few_batches);
		}
	}
	benchmark::Initialize(&argc, argv);
	if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
		return 1;
	}
	benchmark::RunSpecifiedBenchmarks();
	benchmark::Shutdown();
	return 0;
}
