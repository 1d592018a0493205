// SPDX-License-Identifier: GPL-2.0-only
#include "tests/fuzz/steps.h"

namespace
{

// Threads of the module run only while the fuzzer's own thread waits for them.
uint64_t steps = 0;

} // namespace

// The compiler calls it at each block of the core. The fuzzer's library has a function of that name, which does other
// things, so the linker turns the calls here.
extern "C" void __wrap___sanitizer_cov_trace_pc()
{
	++steps;
}

uint64_t captive_portal::test::core_steps()
{
	return steps;
}
