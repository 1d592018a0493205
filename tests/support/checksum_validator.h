// SPDX-License-Identifier: GPL-2.0-only
// Judges checksums from the bytes alone, as a receiver would. Knows nothing of how they were made.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "platform/host/packet_buffer.h"

namespace captive_portal::test
{

using host::Frame;

// Of an untagged frame with an IPv4 header of at least 20 bytes.
[[nodiscard]] bool ipv4_header_checksum_is_right(const Frame &frame);
// Of an untagged IPv4 frame with a whole TCP segment or UDP datagram.
[[nodiscard]] bool transport_checksum_is_right(const Frame &frame);

// The frame that leaves the machine: a partial checksum completed as hardware does it.
[[nodiscard]] Frame frame_on_wire(const host::PacketBuffer &packet);
// The frames that leave the machine when a large TCP packet with a partial checksum is cut into segments with at most
// `segment_bytes` of payload.
[[nodiscard]] std::vector<Frame> segments_on_wire(const host::PacketBuffer &packet, size_t segment_bytes);

// The IPv4 header checksum, the transport checksum as it will leave, and the sum that a complete packet carries.
[[nodiscard]] ::testing::AssertionResult checksums_are_right(const host::PacketBuffer &packet);

} // namespace captive_portal::test
