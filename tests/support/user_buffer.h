// SPDX-License-Identifier: GPL-2.0-only
// A record in the calling process's memory. It ends at the end of a page with nothing behind it, unless a border is
// asked for.
#pragma once

#include <cstddef>
#include <cstring>
#include <span>

#include "platform/host/machine.h"

namespace captive_portal::test
{

using host::UserAccess;

// An address that is not the caller's: copies are refused before the first byte.
inline constexpr cp_user_address refused_address = 0xffff'8000'0000'0000;
// The caller's, but nothing is mapped there.
inline constexpr cp_user_address unmapped_address = 0;

class UserBuffer
{
public:
	// `size` bytes, readable and writable.
	UserBuffer(host::Machine &machine, size_t size);
	// The byte at `border` (1 to size) is the first of a page, whose access, and that of all behind it, is `behind`.
	UserBuffer(host::Machine &machine, size_t size, size_t border, UserAccess behind);

	[[nodiscard]] cp_user_address address() const { return address_; }
	[[nodiscard]] size_t size() const { return size_; }

	void protect_all(UserAccess access);
	// What the process itself does: permissions do not matter.
	void write(std::span<const std::byte> bytes);
	[[nodiscard]] std::vector<std::byte> read() const;

private:
	host::Machine &machine_;
	cp_user_address address_;
	size_t size_;
};

// A UserBuffer that holds a record of type T.
template <typename T> class UserRecord : public UserBuffer
{
public:
	UserRecord(host::Machine &machine, const T &value) : UserBuffer(machine, sizeof(T)) { store(value); }
	UserRecord(host::Machine &machine, const T &value, size_t border, UserAccess behind)
	    : UserBuffer(machine, sizeof(T), border, behind)
	{
		store(value);
	}

	void store(const T &value) { write(std::as_bytes(std::span(&value, 1))); }
	[[nodiscard]] T load() const
	{
		T value;
		std::memcpy(&value, read().data(), sizeof(value));
		return value;
	}
};

} // namespace captive_portal::test
