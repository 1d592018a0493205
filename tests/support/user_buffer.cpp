// SPDX-License-Identifier: GPL-2.0-only
#include "tests/support/user_buffer.h"

#include <stdexcept>

namespace captive_portal::test
{

namespace
{

constexpr size_t page = host::UserMemory::page_size;

constexpr size_t pages_for(size_t bytes)
{
	return (bytes + page - 1) / page;
}

} // namespace

UserBuffer::UserBuffer(host::Machine &machine, size_t size)
    : machine_(machine),
      address_(machine.user.map(pages_for(size), UserAccess::read_write) + pages_for(size) * page - size), size_(size)
{
}

UserBuffer::UserBuffer(host::Machine &machine, size_t size, size_t border, UserAccess behind)
    : machine_(machine), address_(0), size_(size)
{
	if (border == 0 || border > size) {
		throw std::logic_error("the border lies outside the record");
	}
	const size_t before = pages_for(border);
	const size_t after = pages_for(size - border);
	const cp_user_address first = machine.user.map(before + after, UserAccess::read_write);
	for (size_t i = 0; i < after; ++i) {
		machine.user.protect(first + (before + i) * page, behind);
	}
	address_ = first + before * page - border;
}

void UserBuffer::protect_all(UserAccess access)
{
	for (cp_user_address position = address_ / page * page; position < address_ + size_; position += page) {
		machine_.user.protect(position, access);
	}
}

void UserBuffer::write(std::span<const std::byte> bytes)
{
	machine_.user.write(address_, bytes);
}

std::vector<std::byte> UserBuffer::read() const
{
	return machine_.user.read(address_, size_);
}

} // namespace captive_portal::test
