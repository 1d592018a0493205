// SPDX-License-Identifier: GPL-2.0-only
// Typed atomic allocation, and an owner for memory that lives as long as one call.
#pragma once

#include "platform/platform.h"

namespace captive_portal
{

// A zeroed T, or null. The caller owns it and gives it back with cp_free().
template <typename T> [[nodiscard]] inline T *allocate_zeroed()
{
	static_assert(__is_trivially_copyable(T));
	return static_cast<T *>(cp_zalloc_atomic(sizeof(T)));
}

// Frees what it holds when it goes out of scope; may hold null.
template <typename T> class [[nodiscard]] Owned
{
public:
	explicit Owned(void *memory) : memory_(static_cast<T *>(memory)) {}
	~Owned() { cp_free(memory_); }
	Owned(const Owned &) = delete;
	Owned &operator=(const Owned &) = delete;

	[[nodiscard]] explicit operator bool() const { return memory_ != nullptr; }
	[[nodiscard]] T *get() const { return memory_; }
	[[nodiscard]] T &operator*() const { return *memory_; }
	[[nodiscard]] T *operator->() const { return memory_; }

private:
	T *memory_;
};

} // namespace captive_portal
