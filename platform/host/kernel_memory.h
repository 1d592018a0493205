// SPDX-License-Identifier: GPL-2.0-only
// Memory that the module asked for: every allocation is known, and can be made to fail.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <span>
#include <vector>

#include "platform/platform.h"

namespace captive_portal::host
{

struct Allocation {
	const void *memory;
	size_t size;
	uint64_t number; // 1 is the machine's first
	bool large;      // by cp_alloc_large()
};

// Any thread may call any of it.
class KernelMemory
{
public:
	KernelMemory() = default;
	// Frees what the module has not.
	~KernelMemory();
	KernelMemory(const KernelMemory &) = delete;
	KernelMemory &operator=(const KernelMemory &) = delete;

	// `size` bytes, zeroed, or null: an ordered failure, or more than an atomic allocation can give.
	[[nodiscard]] void *allocate(size_t size);
	// `size` bytes of any number and any content, or null: an ordered failure.
	[[nodiscard]] void *allocate_large(size_t size);
	// Null is ignored; both die for what was not allocated so or was freed before.
	void free(void *memory);
	void free_large(void *memory);

	// The `n`-th allocation from now on fails, 1 being the next; those before and after it do not. Copies of user
	// records count.
	void fail_allocation(uint64_t n);
	// Every allocation fails until this is called with false.
	void fail_all_allocations(bool fail);

	// Called before each atomic allocation, failed ones and copies of user records included, with its size.
	void before_atomic_allocation(std::function<void(size_t)> action);
	// Called before each large allocation, failed ones included, with its size.
	void before_large_allocation(std::function<void(size_t)> action);

	// Whether an order to fail stands, or an action is called before allocations.
	[[nodiscard]] bool is_watched() const;

	// Calls so far, failed ones included.
	[[nodiscard]] uint64_t attempts() const;
	// What is allocated and not yet freed, oldest first.
	[[nodiscard]] std::vector<Allocation> live() const;
	// What of it no chain of pointers reaches that starts in `roots`: lost for ever.
	[[nodiscard]] std::vector<Allocation> unreachable_from(std::span<const std::span<const std::byte>> roots) const;

	// The kernel's end of atomic allocations.
	static constexpr size_t largest_allocation = 4u << 20;

private:
	[[nodiscard]] void *allocate(size_t size, bool large);
	void free(void *memory, bool large);

	mutable std::mutex mutex_;
	std::map<void *, Allocation> allocations_;
	uint64_t attempts_ = 0;
	uint64_t failing_attempt_ = 0;
	bool fail_all_ = false;
	std::function<void(size_t)> before_atomic_allocation_;
	std::function<void(size_t)> before_large_allocation_;
};

} // namespace captive_portal::host
