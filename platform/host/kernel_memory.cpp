// SPDX-License-Identifier: GPL-2.0-only
#include "platform/host/kernel_memory.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <set>
#include <utility>

#include "platform/host/bookkeeping.h"
#include "platform/host/context.h"

namespace captive_portal::host
{

namespace
{

std::vector<Allocation> oldest_first(std::vector<Allocation> allocations)
{
	std::sort(allocations.begin(), allocations.end(),
		  [](const Allocation &a, const Allocation &b) { return a.number < b.number; });
	return allocations;
}

// Roots include the red zones that the address sanitizer lays between variables, so no byte of a root may be checked.
__attribute__((no_sanitize("address", "thread"))) void *pointer_at(const std::byte *bytes)
{
	void *pointer = nullptr;
	auto *const to = reinterpret_cast<volatile std::byte *>(&pointer);
	for (size_t i = 0; i < sizeof(pointer); ++i) {
		to[i] = bytes[i];
	}
	return pointer;
}

} // namespace

KernelMemory::~KernelMemory()
{
	for (const auto &[memory, allocation] : allocations_) {
		std::free(memory);
	}
}

void *KernelMemory::allocate(size_t size)
{
	std::function<void(size_t)> action;
	{
		const BookkeepingGuard guard(mutex_);
		action = before_atomic_allocation_;
	}
	if (action) {
		action(size);
	}
	return allocate(size, false);
}

void *KernelMemory::allocate_large(size_t size)
{
	std::function<void(size_t)> action;
	{
		const BookkeepingGuard guard(mutex_);
		action = before_large_allocation_;
	}
	if (action) {
		action(size);
	}
	void *const memory = allocate(size, true);
	if (memory != nullptr) {
		// Whoever reads what nobody has written gets no zeroes.
		std::memset(memory, 0xa5, size);
	}
	return memory;
}

void *KernelMemory::allocate(size_t size, bool large)
{
	const BookkeepingGuard guard(mutex_);
	++attempts_;
	if (fail_all_ || attempts_ == failing_attempt_ || (!large && size > largest_allocation)) {
		return nullptr;
	}
	void *const memory = std::calloc(1, size);
	if (memory == nullptr) {
		die("the host has no memory");
	}
	allocations_[memory] = {memory, size, attempts_, large};
	return memory;
}

void KernelMemory::free(void *memory)
{
	free(memory, false);
}

void KernelMemory::free_large(void *memory)
{
	free(memory, true);
}

void KernelMemory::free(void *memory, bool large)
{
	if (memory == nullptr) {
		return;
	}
	{
		const BookkeepingGuard guard(mutex_);
		const auto found = allocations_.find(memory);
		if (found == allocations_.end()) {
			die("free of memory that is not allocated: %p", memory);
		}
		if (found->second.large != large) {
			die("memory of one allocator freed by the other: %p", memory);
		}
		allocations_.erase(found);
	}
	std::free(memory);
}

void KernelMemory::fail_allocation(uint64_t n)
{
	const BookkeepingGuard guard(mutex_);
	failing_attempt_ = attempts_ + n;
}

void KernelMemory::fail_all_allocations(bool fail)
{
	const BookkeepingGuard guard(mutex_);
	fail_all_ = fail;
}

void KernelMemory::before_atomic_allocation(std::function<void(size_t)> action)
{
	const BookkeepingGuard guard(mutex_);
	before_atomic_allocation_ = std::move(action);
}

void KernelMemory::before_large_allocation(std::function<void(size_t)> action)
{
	const BookkeepingGuard guard(mutex_);
	before_large_allocation_ = std::move(action);
}

bool KernelMemory::is_watched() const
{
	const BookkeepingGuard guard(mutex_);
	return fail_all_ || failing_attempt_ > attempts_ || before_atomic_allocation_ || before_large_allocation_;
}

uint64_t KernelMemory::attempts() const
{
	const BookkeepingGuard guard(mutex_);
	return attempts_;
}

std::vector<Allocation> KernelMemory::live() const
{
	const BookkeepingGuard guard(mutex_);
	std::vector<Allocation> allocations;
	for (const auto &[memory, allocation] : allocations_) {
		allocations.push_back(allocation);
	}
	return oldest_first(std::move(allocations));
}

std::vector<Allocation> KernelMemory::unreachable_from(std::span<const std::span<const std::byte>> roots) const
{
	const BookkeepingGuard guard(mutex_);
	std::set<const void *> reached;
	std::vector<std::span<const std::byte>> to_scan(roots.begin(), roots.end());
	while (!to_scan.empty()) {
		const std::span<const std::byte> bytes = to_scan.back();
		to_scan.pop_back();
		const auto misaligned = reinterpret_cast<uintptr_t>(bytes.data()) % alignof(void *);
		for (size_t offset = misaligned == 0 ? 0 : alignof(void *) - misaligned;
		     offset + sizeof(void *) <= bytes.size(); offset += alignof(void *)) {
			const auto found = allocations_.find(pointer_at(bytes.data() + offset));
			if (found != allocations_.end() && reached.insert(found->first).second) {
				to_scan.push_back({static_cast<const std::byte *>(found->first), found->second.size});
			}
		}
	}
	std::vector<Allocation> lost;
	for (const auto &[memory, allocation] : allocations_) {
		if (!reached.contains(memory)) {
			lost.push_back(allocation);
		}
	}
	return oldest_first(std::move(lost));
}

} // namespace captive_portal::host
