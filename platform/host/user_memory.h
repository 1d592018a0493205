// SPDX-License-Identifier: GPL-2.0-only
// The address space of the process that calls the control device: pages of 4096 bytes with permissions.
//
// Copies go page by page, as a kernel's do: they stop at the first page that refuses. Addresses from `address_limit` on
// are not the caller's; a range that touches them is refused before the first byte.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <span>
#include <vector>

#include "platform/platform.h"

namespace captive_portal::host
{

enum class UserAccess { none, read_only, read_write };

class UserMemory
{
public:
	static constexpr size_t page_size = 4096;
	// 47 bits less one page, as on x86-64.
	static constexpr cp_user_address address_limit = 0x7fff'ffff'f000;

	// Maps `pages` zeroed pages in a row; the pages before and behind them are never mapped. Returns the first's address.
	[[nodiscard]] cp_user_address map(size_t pages, UserAccess access);
	// Maps one zeroed page at an address of the caller's choice; dies when there is a page already.
	void map_at(cp_user_address page, UserAccess access);
	// Changes the page that holds `address`, which must be mapped.
	void protect(cp_user_address address, UserAccess access);

	// What the process itself reads and writes, whatever the permissions; dies for a page that is not mapped.
	void write(cp_user_address to, std::span<const std::byte> bytes);
	[[nodiscard]] std::vector<std::byte> read(cp_user_address from, size_t size) const;

	// What the kernel does. The results are numbers of bytes not copied.
	[[nodiscard]] size_t copy_in(void *to, cp_user_address from, size_t size) const;
	[[nodiscard]] size_t copy_out(cp_user_address to, const void *from, size_t size);

	// The `n`-th copy from now on, in either direction, copies nothing, 1 being the next; those before and after it do
	// what the pages permit.
	void fail_copy(uint64_t n);
	// Copies so far, failed ones included.
	[[nodiscard]] uint64_t copies() const;

	// Called before each copy out, where a process may wait for its page.
	void before_copy_out(std::function<void()> action);

private:
	struct Page {
		UserAccess access;
		std::array<std::byte, page_size> bytes;
	};

	// Calls `copy(page bytes, done, bytes in this piece)` for each page of the range as long as the page is mapped and
	// `permitted(access)`; returns the number of bytes left.
	template <typename Permitted, typename Copy>
	size_t for_each_page(cp_user_address address, size_t size, Permitted permitted, Copy copy) const;

	// Counts a copy; true when it was ordered to fail.
	[[nodiscard]] bool next_copy_fails() const;

	mutable std::mutex mutex_;
	// By page number. Mutable: one walker serves both directions.
	mutable std::map<uintptr_t, Page> pages_;
	uintptr_t next_page_ = 0x10;
	mutable uint64_t copies_ = 0;
	uint64_t failing_copy_ = 0;
	std::function<void()> before_copy_out_;
};

} // namespace captive_portal::host
