// SPDX-License-Identifier: GPL-2.0-only
// How much work the core does, without a clock: the basic blocks that it enters. Counted in fuzzing builds alone.
#pragma once

#include <cstdint>

namespace captive_portal::test
{

// Blocks entered since the program's start; always 0 where nothing counts them. A block may copy or clear bytes with one
// call, which is one step.
[[nodiscard]] uint64_t core_steps();

// The steps that `body` takes.
template <typename Body> [[nodiscard]] uint64_t steps_of(Body body)
{
	const uint64_t before = core_steps();
	body();
	return core_steps() - before;
}

} // namespace captive_portal::test
