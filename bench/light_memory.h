// SPDX-License-Identifier: GPL-2.0-only
// The light platform's memory: blocks of a kernel's slab sizes, taken from free lists as cheap as a slab allocator's. An
// address inside the arena tells which block it lies in, so memory accesses can be counted by block.
#pragma once

#include <cstddef>
#include <cstdint>

namespace captive_portal::bench
{

// Largest block that an atomic allocation can have.
inline constexpr size_t largest_atomic_block = size_t{4} << 20;

// Not zeroed; null when the arena is used up or `size` is above 64 MiB.
[[nodiscard]] void *take_block(size_t size);
// Null is ignored.
void give_block(void *block);

// The same for memory that has pages of 4 KiB of its own, counted by these instead of by a slab size.
[[nodiscard]] void *take_pages(size_t size);

// Bytes that this thread has taken and not given back, each block counted with its slab size.
[[nodiscard]] int64_t live_block_bytes();
// Slab size of a block for `size` bytes.
[[nodiscard]] size_t slab_size(size_t size);

// A piece of the arena: a whole block of at most 256 bytes, or one 64-byte line of a larger one.
inline constexpr uint32_t no_piece = ~0U;
inline constexpr size_t piece_numbers = size_t{1} << 26;
// Number of the piece that the address lies in, below `piece_numbers`; no_piece for an address outside the arena.
[[nodiscard]] uint32_t piece_of(uintptr_t address);

} // namespace captive_portal::bench
