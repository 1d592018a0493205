// SPDX-License-Identifier: GPL-2.0-only
#include "tests/support/packets.h"

namespace captive_portal::test
{

namespace
{

constexpr size_t ethernet_header_bytes = 14;
constexpr uint32_t tcp_checksum_offset = 16;

// Takes the finished TCP checksum away and leaves the sum of the pseudo header.
host::ChecksumPlace unfinish_checksum(host::Frame &frame)
{
	const uint32_t transport = frame.at(ethernet_header_bytes) % 16u * 4;
	const uint32_t field = transport + tcp_checksum_offset;
	const uint32_t segment_bytes = frame.at(16) * 256u + frame.at(17) - transport;
	uint32_t sum = frame.at(23) + segment_bytes;
	for (size_t i = 26; i < 34; i += 2) {
		sum += frame.at(i) * 256u + frame.at(i + 1);
	}
	while (sum > 0xffff) {
		sum = sum % 65536 + sum / 65536;
	}
	frame.at(ethernet_header_bytes + field) = static_cast<uint8_t>(sum / 256);
	frame.at(ethernet_header_bytes + field + 1) = static_cast<uint8_t>(sum % 256);
	return {transport, field};
}

} // namespace

host::PacketBuffer packet_of(const host::Frame &frame, host::ChecksumState state, host::Layout layout)
{
	if (state == host::ChecksumState::partial) {
		host::Frame unfinished = frame;
		const host::ChecksumPlace place = unfinish_checksum(unfinished);
		host::PacketBuffer packet(unfinished, layout);
		packet.set_checksum_state(state, place);
		return packet;
	}
	host::PacketBuffer packet(frame, layout);
	packet.set_checksum_state(state);
	return packet;
}

} // namespace captive_portal::test
