// SPDX-License-Identifier: GPL-2.0-only
#include "platform/host/counters.h"

#include <utility>

#include "platform/host/context.h"

namespace captive_portal::host
{

int Counters::create(size_t count)
{
	might_sleep("cp_counters_create");
	++create_calls_;
	if (const int error = std::exchange(next_error_, 0); error != 0) {
		return error;
	}
	if (values_ != nullptr) {
		die("counters made twice");
	}
	values_ = std::make_unique<std::atomic<uint64_t>[]>(count);
	count_ = count;
	return 0;
}

void Counters::remove()
{
	might_sleep("cp_counters_remove");
	values_.reset();
	count_ = 0;
}

void Counters::add(size_t counter)
{
	if (values_ == nullptr) {
		return;
	}
	if (counter >= count_) {
		die("a counter that is none");
	}
	values_[counter].fetch_add(1, std::memory_order_relaxed);
}

uint64_t Counters::value(size_t counter) const
{
	if (values_ == nullptr) {
		return 0;
	}
	if (counter >= count_) {
		die("a counter that is none");
	}
	return values_[counter].load(std::memory_order_relaxed);
}

} // namespace captive_portal::host
