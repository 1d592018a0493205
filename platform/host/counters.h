// SPDX-License-Identifier: GPL-2.0-only
// The module's counters.
#pragma once

#include <atomic>
#include <memory>

#include "platform/platform.h"

namespace captive_portal::host
{

class Counters
{
public:
	[[nodiscard]] int create(size_t count);
	void remove();

	// Dies for a counter that was never made; without counters it does nothing.
	void add(size_t counter);
	[[nodiscard]] uint64_t value(size_t counter) const;

	// The next creation gives this negative error.
	void fail_next_creation(int error) { next_error_ = error; }
	[[nodiscard]] uint32_t create_calls() const { return create_calls_; }
	[[nodiscard]] bool are_there() const { return values_ != nullptr; }

private:
	std::unique_ptr<std::atomic<uint64_t>[]> values_;
	size_t count_ = 0;
	int next_error_ = 0;
	uint32_t create_calls_ = 0;
};

} // namespace captive_portal::host
