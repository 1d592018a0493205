// SPDX-License-Identifier: GPL-2.0-only
#include "tests/support/checksum_validator.h"

#include <algorithm>
#include <stdexcept>

namespace captive_portal::test
{

namespace
{

constexpr size_t ethernet_header_bytes = 14;

// Adds bytes one by one, even ones as high bytes, with the carry taken around at once.
class Summer
{
public:
	void add(uint8_t byte)
	{
		sum_ += high_ ? static_cast<uint32_t>(byte) * 256 : byte;
		high_ = !high_;
		if (sum_ > 0xffff) {
			sum_ -= 0xffff;
		}
	}
	void add_range(const Frame &frame, size_t from, size_t to)
	{
		for (size_t i = from; i < to; ++i) {
			add(frame.at(i));
		}
	}
	void add_word(size_t word)
	{
		add(static_cast<uint8_t>(word / 256));
		add(static_cast<uint8_t>(word % 256));
	}
	[[nodiscard]] uint32_t sum() const { return sum_; }
	// A sum with its checksum in it is all ones; no packet sums up to zero.
	[[nodiscard]] bool is_right() const { return sum_ == 0xffff; }

private:
	uint32_t sum_ = 0;
	bool high_ = true;
};

size_t word_at(const Frame &frame, size_t offset)
{
	return static_cast<size_t>(frame.at(offset)) * 256 + frame.at(offset + 1);
}

void store_word_at(Frame &frame, size_t offset, size_t value)
{
	frame.at(offset) = static_cast<uint8_t>(value / 256);
	frame.at(offset + 1) = static_cast<uint8_t>(value % 256);
}

struct Places {
	size_t transport;
	size_t end; // of the IPv4 packet; padding may follow
};

Places places(const Frame &frame)
{
	const size_t transport = ethernet_header_bytes + static_cast<size_t>(frame.at(14) % 16) * 4;
	const size_t end = ethernet_header_bytes + word_at(frame, 16);
	if (transport < 34 || end > frame.size() || end < transport) {
		throw std::logic_error("not a whole IPv4 packet");
	}
	return {transport, end};
}

void store_ipv4_header_checksum(Frame &frame, size_t transport)
{
	store_word_at(frame, 24, 0);
	Summer header;
	header.add_range(frame, ethernet_header_bytes, transport);
	store_word_at(frame, 24, 0xffff - header.sum());
}

void complete(Frame &frame, size_t start, size_t field, size_t end)
{
	Summer rest;
	rest.add_range(frame, start, end);
	store_word_at(frame, field, 0xffff - rest.sum());
}

} // namespace

bool ipv4_header_checksum_is_right(const Frame &frame)
{
	Summer header;
	header.add_range(frame, ethernet_header_bytes, places(frame).transport);
	return header.is_right();
}

bool transport_checksum_is_right(const Frame &frame)
{
	const auto [transport, end] = places(frame);
	Summer segment;
	segment.add_range(frame, 26, 34); // both addresses
	segment.add_word(frame.at(23));   // protocol
	segment.add_word(end - transport);
	segment.add_range(frame, transport, end);
	return segment.is_right();
}

Frame frame_on_wire(const host::PacketBuffer &packet)
{
	Frame frame = packet.frame();
	if (packet.checksum_state() == host::ChecksumState::partial) {
		const host::ChecksumPlace place = packet.checksum_place().value();
		complete(frame, ethernet_header_bytes + place.start, ethernet_header_bytes + place.field,
			 places(frame).end);
	}
	return frame;
}

std::vector<Frame> segments_on_wire(const host::PacketBuffer &packet, size_t segment_bytes)
{
	const Frame whole = packet.frame();
	const auto [transport, end] = places(whole);
	const size_t payload = transport + static_cast<size_t>(whole.at(transport + 12) / 16) * 4;
	const size_t field = ethernet_header_bytes + packet.checksum_place().value().field;
	std::vector<Frame> segments;
	for (size_t from = payload; from < end; from += segment_bytes) {
		const size_t to = std::min(end, from + segment_bytes);
		Frame segment(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(payload));
		segment.insert(segment.end(), whole.begin() + static_cast<ptrdiff_t>(from),
			       whole.begin() + static_cast<ptrdiff_t>(to));
		store_word_at(segment, 16, segment.size() - ethernet_header_bytes);
		store_ipv4_header_checksum(segment, transport);
		// The stored sum counts the whole packet's length: take that out, put the segment's in.
		Summer pseudo_header;
		pseudo_header.add_word(word_at(segment, field));
		pseudo_header.add_word(0xffff - (end - transport));
		pseudo_header.add_word(segment.size() - transport);
		store_word_at(segment, field, pseudo_header.sum());
		const size_t sequence =
			word_at(whole, transport + 4) * 65536 + word_at(whole, transport + 6) + from - payload;
		store_word_at(segment, transport + 4, sequence / 65536 % 65536);
		store_word_at(segment, transport + 6, sequence % 65536);
		complete(segment, transport, field, segment.size());
		segments.push_back(segment);
	}
	return segments;
}

::testing::AssertionResult checksums_are_right(const host::PacketBuffer &packet)
{
	const Frame frame = frame_on_wire(packet);
	if (!ipv4_header_checksum_is_right(frame)) {
		return ::testing::AssertionFailure() << "the IPv4 header checksum is wrong";
	}
	if (!transport_checksum_is_right(frame)) {
		return ::testing::AssertionFailure() << "the transport checksum is wrong";
	}
	if (packet.checksum_state() == host::ChecksumState::complete) {
		Summer all;
		all.add_range(frame, ethernet_header_bytes, frame.size());
		// Zero and all ones are the same number here.
		if (all.sum() % 0xffff != packet.sum() % 0xffffu) {
			return ::testing::AssertionFailure()
			       << "the packet's sum is " << packet.sum() << ", its bytes' is " << all.sum();
		}
	}
	return ::testing::AssertionSuccess();
}

} // namespace captive_portal::test
