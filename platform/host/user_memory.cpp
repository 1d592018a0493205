// SPDX-License-Identifier: GPL-2.0-only
#include "platform/host/user_memory.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "platform/host/bookkeeping.h"
#include "platform/host/context.h"

namespace captive_portal::host
{

namespace
{

bool range_is_the_callers(cp_user_address address, size_t size)
{
	return size <= UserMemory::address_limit && address <= UserMemory::address_limit - size;
}

bool any_access(UserAccess)
{
	return true;
}

bool readable(UserAccess access)
{
	return access != UserAccess::none;
}

bool writable(UserAccess access)
{
	return access == UserAccess::read_write;
}

} // namespace

template <typename Permitted, typename Copy>
size_t UserMemory::for_each_page(cp_user_address address, size_t size, Permitted permitted, Copy copy) const
{
	const BookkeepingGuard guard(mutex_);
	size_t done = 0;
	while (done < size) {
		const cp_user_address position = address + done;
		const auto page = pages_.find(position / page_size);
		if (page == pages_.end() || !permitted(page->second.access)) {
			break;
		}
		const size_t offset = position % page_size;
		const size_t piece = std::min(size - done, page_size - offset);
		copy(page->second.bytes.data() + offset, done, piece);
		done += piece;
	}
	return size - done;
}

cp_user_address UserMemory::map(size_t pages, UserAccess access)
{
	const BookkeepingGuard guard(mutex_);
	const uintptr_t first = next_page_;
	for (size_t i = 0; i < pages; ++i) {
		pages_[first + i] = {access, {}};
	}
	next_page_ = first + pages + 1;
	return first * page_size;
}

void UserMemory::map_at(cp_user_address page, UserAccess access)
{
	const BookkeepingGuard guard(mutex_);
	if (page % page_size != 0 || !pages_.try_emplace(page / page_size, Page{access, {}}).second) {
		die("no place for a user page at 0x%zx", static_cast<size_t>(page));
	}
}

void UserMemory::protect(cp_user_address address, UserAccess access)
{
	const BookkeepingGuard guard(mutex_);
	const auto page = pages_.find(address / page_size);
	if (page == pages_.end()) {
		die("no user page at 0x%zx", static_cast<size_t>(address));
	}
	page->second.access = access;
}

void UserMemory::write(cp_user_address to, std::span<const std::byte> bytes)
{
	const size_t left =
		for_each_page(to, bytes.size(), any_access, [&](std::byte *page, size_t done, size_t piece) {
			std::memcpy(page, bytes.data() + done, piece);
		});
	if (left != 0) {
		die("no user page at 0x%zx", static_cast<size_t>(to + bytes.size() - left));
	}
}

std::vector<std::byte> UserMemory::read(cp_user_address from, size_t size) const
{
	std::vector<std::byte> bytes(size);
	const size_t left = for_each_page(from, size, any_access, [&](std::byte *page, size_t done, size_t piece) {
		std::memcpy(bytes.data() + done, page, piece);
	});
	if (left != 0) {
		die("no user page at 0x%zx", static_cast<size_t>(from + size - left));
	}
	return bytes;
}

size_t UserMemory::copy_in(void *to, cp_user_address from, size_t size) const
{
	auto *const kernel = static_cast<std::byte *>(to);
	size_t left = size;
	if (!next_copy_fails() && range_is_the_callers(from, size)) {
		left = for_each_page(from, size, readable, [&](std::byte *page, size_t done, size_t piece) {
			std::memcpy(kernel + done, page, piece);
		});
	}
	std::memset(kernel + (size - left), 0, left);
	return left;
}

size_t UserMemory::copy_out(cp_user_address to, const void *from, size_t size)
{
	std::function<void()> action;
	{
		const BookkeepingGuard guard(mutex_);
		action = before_copy_out_;
	}
	if (action) {
		action();
	}
	if (next_copy_fails() || !range_is_the_callers(to, size)) {
		return size;
	}
	const auto *const kernel = static_cast<const std::byte *>(from);
	return for_each_page(to, size, writable, [&](std::byte *page, size_t done, size_t piece) {
		std::memcpy(page, kernel + done, piece);
	});
}

bool UserMemory::next_copy_fails() const
{
	const BookkeepingGuard guard(mutex_);
	return ++copies_ == failing_copy_;
}

void UserMemory::fail_copy(uint64_t n)
{
	const BookkeepingGuard guard(mutex_);
	failing_copy_ = copies_ + n;
}

uint64_t UserMemory::copies() const
{
	const BookkeepingGuard guard(mutex_);
	return copies_;
}

void UserMemory::before_copy_out(std::function<void()> action)
{
	const BookkeepingGuard guard(mutex_);
	before_copy_out_ = std::move(action);
}

} // namespace captive_portal::host
