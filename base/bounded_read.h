// SPDX-License-Identifier: GPL-2.0-only
// Bounded reads: how the core takes values out of bytes that somebody else has written.
#pragma once

#include "base/byte_order.h"
#include "base/field.h"

namespace captive_portal
{

// The T at `offset` of `count` bytes, missing unless it lies among them whole. Any alignment.
template <typename T> [[nodiscard]] inline Field<T> field_at(const uint8_t *bytes, uint32_t count, uint32_t offset)
{
	if (uint64_t{offset} + sizeof(T) > count) {
		return {};
	}
	return read_unaligned<T>(bytes + offset);
}

} // namespace captive_portal
