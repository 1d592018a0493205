// SPDX-License-Identifier: GPL-2.0-only
#include "bench/light_memory.h"

#include <sys/mman.h>

#include <array>
#include <atomic>
#include <bit>
#include <cstdio>
#include <cstdlib>

namespace captive_portal::bench
{

namespace
{

constexpr size_t arena_bytes = size_t{1} << 30;
constexpr size_t chunk_bytes = size_t{64} << 10;
constexpr size_t line_bytes = 64;
constexpr size_t piece_unit = arena_bytes / piece_numbers;
constexpr size_t largest_whole_piece = 256;

// The sizes of a kernel's general slabs, then powers of two up to the largest block.
constexpr std::array<size_t, 26> sizes = {
	8,     16,    32,    64,     96,     128,    192,     256,     512,     1024,    2048,     4096,     8192,
	16384, 32768, 65536, 131072, 262144, 524288, 1048576, 2097152, 4194304, 8388608, 16777216, 33554432, 67108864,
};
constexpr size_t largest_small_size = 256;

// Class of a size up to largest_small_size, by eighths.
constexpr auto small_classes = [] {
	std::array<uint8_t, largest_small_size / 8 + 1> classes{};
	uint8_t smallest = 0;
	for (size_t eighths = 0; eighths < classes.size(); ++eighths) {
		while (sizes[smallest] < eighths * 8) {
			++smallest;
		}
		classes[eighths] = smallest;
	}
	return classes;
}();

constexpr uint32_t class_of(size_t size)
{
	if (size <= largest_small_size) {
		return small_classes[(size + 7) / 8];
	}
	// 512 is 2 to the 9th and has class 8.
	return static_cast<uint32_t>(std::bit_width(size - 1)) - 1;
}
static_assert(sizes[class_of(1)] == 8 && sizes[class_of(65)] == 96 && sizes[class_of(256)] == 256);
static_assert(sizes[class_of(257)] == 512 && sizes[class_of(512)] == 512 && sizes[class_of(513)] == 1024);
static_assert(sizes[class_of(67108864)] == 67108864);

char *map_arena()
{
	void *const memory =
		mmap(nullptr, arena_bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
	if (memory == MAP_FAILED) {
		std::perror("mmap");
		std::abort();
	}
	// As a kernel's own memory is mapped: its slabs miss caches, but seldom the translation. Where large pages are not to be
	// had, times at large sizes are longer.
	static_cast<void>(madvise(memory, arena_bytes, MADV_HUGEPAGE));
	return static_cast<char *>(memory);
}

char *const arena = map_arena();
std::atomic<size_t> used_chunks = 0;
constexpr size_t page_bytes = 4096;
// What a slab size counts too much for blocks of take_pages(): by the 4 KiB unit that they begin in.
std::array<uint32_t, arena_bytes / page_bytes> page_savings;

// Class of the blocks in each chunk; a block of several chunks is named by its first.
std::array<uint8_t, arena_bytes / chunk_bytes> chunk_classes;

struct FreeBlock {
	FreeBlock *next;
};

// Each thread has lists of its own; a block goes to the list of the thread that gives it back.
struct Class {
	FreeBlock *free;
	char *fresh; // never used yet, up to `end`
	char *end;
};
thread_local std::array<Class, sizes.size()> classes;
thread_local int64_t live_bytes = 0;

bool add_chunks(uint32_t number)
{
	const size_t bytes = sizes[number] > chunk_bytes ? sizes[number] : chunk_bytes;
	const size_t count = bytes / chunk_bytes;
	const size_t first = used_chunks.fetch_add(count);
	if (first + count > chunk_classes.size()) {
		used_chunks.fetch_sub(count);
		return false;
	}
	for (size_t chunk = first; chunk < first + count; ++chunk) {
		chunk_classes[chunk] = static_cast<uint8_t>(number);
	}
	classes[number].fresh = arena + first * chunk_bytes;
	classes[number].end = classes[number].fresh + bytes / sizes[number] * sizes[number];
	return true;
}

} // namespace

void *take_block(size_t size)
{
	if (size > sizes.back()) {
		return nullptr;
	}
	const uint32_t number = class_of(size);
	Class &blocks = classes[number];
	live_bytes += static_cast<int64_t>(sizes[number]);
	if (FreeBlock *const block = blocks.free) {
		blocks.free = block->next;
		return block;
	}
	if (blocks.fresh == blocks.end && !add_chunks(number)) {
		live_bytes -= static_cast<int64_t>(sizes[number]);
		return nullptr;
	}
	char *const block = blocks.fresh;
	blocks.fresh += sizes[number];
	return block;
}

void give_block(void *memory)
{
	if (memory == nullptr) {
		return;
	}
	const uint32_t number = chunk_classes[static_cast<size_t>(static_cast<char *>(memory) - arena) / chunk_bytes];
	auto *const block = static_cast<FreeBlock *>(memory);
	uint32_t &saving = page_savings[static_cast<size_t>(static_cast<char *>(memory) - arena) / page_bytes];
	if (saving != 0 && sizes[number] >= page_bytes) {
		live_bytes += saving;
		saving = 0;
	}
	block->next = classes[number].free;
	classes[number].free = block;
	live_bytes -= static_cast<int64_t>(sizes[number]);
}

void *take_pages(size_t size)
{
	const size_t whole = (size + page_bytes - 1) / page_bytes * page_bytes;
	void *const block = take_block(whole);
	if (block != nullptr) {
		const auto saving = static_cast<uint32_t>(slab_size(whole) - whole);
		page_savings[static_cast<size_t>(static_cast<char *>(block) - arena) / page_bytes] = saving;
		live_bytes -= saving;
	}
	return block;
}

int64_t live_block_bytes()
{
	return live_bytes;
}

size_t slab_size(size_t size)
{
	return sizes[class_of(size)];
}

uint32_t piece_of(uintptr_t address)
{
	const size_t offset = address - reinterpret_cast<uintptr_t>(arena);
	if (offset >= arena_bytes) {
		return no_piece;
	}
	const size_t size = sizes[chunk_classes[offset / chunk_bytes]];
	if (size > largest_whole_piece) {
		return static_cast<uint32_t>(offset / line_bytes * line_bytes / piece_unit);
	}
	const size_t chunk = offset / chunk_bytes * chunk_bytes;
	const size_t start = chunk + (offset - chunk) / size * size;
	// Blocks of 8 bytes share a number with their neighbour when two lie in one unit.
	return static_cast<uint32_t>(start / piece_unit);
}

} // namespace captive_portal::bench
