// SPDX-License-Identifier: GPL-2.0-only
// A fuzzer's bytes, taken from the front as numbers, choices and texts. Behind the end everything is 0, so every input
// is a whole one.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <vector>

namespace captive_portal::test
{

class Input
{
public:
	Input(const uint8_t *data, size_t size) : rest_(data, size) {}

	[[nodiscard]] bool empty() const { return rest_.empty(); }
	[[nodiscard]] size_t size() const { return rest_.size(); }

	// Little-endian.
	template <typename T> [[nodiscard]] T number()
	{
		T value{};
		const size_t present = std::min(sizeof(value), rest_.size());
		std::memcpy(&value, rest_.data(), present);
		rest_ = rest_.subspan(present);
		return value;
	}
	[[nodiscard]] uint8_t byte() { return number<uint8_t>(); }
	// 0 to limit - 1; the limit is 1 to 256.
	[[nodiscard]] uint32_t below(uint32_t limit) { return byte() % limit; }

	template <typename T, size_t size> [[nodiscard]] const T &pick(const T (&choices)[size])
	{
		return choices[below(size)];
	}

	// At most `count` bytes, fewer at the end, in a heap block of exactly their number.
	[[nodiscard]] std::vector<uint8_t> bytes(size_t count)
	{
		const auto piece = rest_.first(std::min(count, rest_.size()));
		rest_ = rest_.subspan(piece.size());
		return {piece.begin(), piece.end()};
	}
	[[nodiscard]] std::string text(size_t count)
	{
		const std::vector<uint8_t> piece = bytes(count);
		return {piece.begin(), piece.end()};
	}
	// Fills what there are bytes for.
	void fill(std::span<uint8_t> to)
	{
		const std::vector<uint8_t> piece = bytes(to.size());
		std::copy(piece.begin(), piece.end(), to.begin());
	}

private:
	std::span<const uint8_t> rest_;
};

} // namespace captive_portal::test
