// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/explain/pcap_file.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <span>

#include "cpctl/failure.h"

namespace cpctl
{

namespace
{

// Its first word, in the byte order of the machine that wrote it: times in microseconds or in nanoseconds.
constexpr uint32_t magic_microseconds = 0xa1b2c3d4;
constexpr uint32_t magic_nanoseconds = 0xa1b23c4d;
constexpr uint32_t magic_next_generation = 0x0a0d0d0a;

constexpr size_t file_header_size = 24;
constexpr size_t link_type_at = 20;
// Bits above these are about checksums behind the frames.
constexpr uint32_t link_type_mask = 0xffff;
constexpr uint32_t link_type_ethernet = 1;

constexpr size_t frame_header_size = 16;
constexpr size_t captured_at = 8;

enum class ByteOrder { own, swapped };

uint32_t word_at(std::span<const char> bytes, size_t offset, ByteOrder order)
{
	uint32_t word = 0;
	std::memcpy(&word, &bytes[offset], sizeof(word));
	return order == ByteOrder::own ? word : __builtin_bswap32(word);
}

ByteOrder byte_order(std::span<const char> file, const std::string &path)
{
	if (file.size() >= file_header_size) {
		for (const ByteOrder order : {ByteOrder::own, ByteOrder::swapped}) {
			const uint32_t magic = word_at(file, 0, order);
			if (magic == magic_microseconds || magic == magic_nanoseconds) {
				return order;
			}
		}
		if (word_at(file, 0, ByteOrder::own) == magic_next_generation) {
			throw usage_failure(
				path + " is a pcapng file: rewrite it with tcpdump -r FILE -w NEW, or editcap -F pcap");
		}
	}
	throw usage_failure(path + " is no capture file of tcpdump -w");
}

} // namespace

std::vector<FrameBytes> read_pcap_file(const std::string &path)
{
	std::ifstream stream(path, std::ios::binary);
	const std::vector<char> bytes{std::istreambuf_iterator<char>(stream), {}};
	if (!stream) {
		throw usage_failure(path + " cannot be read: " + std::strerror(errno) +
				    ": name a capture of tcpdump -w that you may read");
	}
	std::span<const char> rest = bytes;
	const ByteOrder order = byte_order(rest, path);
	const uint32_t link_type = word_at(rest, link_type_at, order) & link_type_mask;
	if (link_type != link_type_ethernet) {
		throw usage_failure(path + " has frames that are not Ethernet's (link type " +
				    std::to_string(link_type) + "): capture at a port of the bridge");
	}
	rest = rest.subspan(file_header_size);
	std::vector<FrameBytes> frames;
	while (!rest.empty()) {
		const size_t size = rest.size() >= frame_header_size ? word_at(rest, captured_at, order) : 0;
		if (rest.size() < frame_header_size + size) {
			throw usage_failure(path + " ends in the midst of frame " + std::to_string(frames.size() + 1));
		}
		const std::span<const char> frame = rest.subspan(frame_header_size, size);
		frames.emplace_back(frame.begin(), frame.end());
		rest = rest.subspan(frame_header_size + size);
	}
	return frames;
}

} // namespace cpctl
