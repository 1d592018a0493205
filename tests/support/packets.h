// SPDX-License-Identifier: GPL-2.0-only
// Packets from frames.
#pragma once

#include "platform/host/packet_buffer.h"

namespace captive_portal::test
{

// A packet that arrives with this frame. For ChecksumState::partial the frame is an untagged TCP packet with a right
// checksum; the packet carries the pseudo header's sum in its place.
[[nodiscard]] host::PacketBuffer packet_of(const host::Frame &frame,
					   host::ChecksumState state = host::ChecksumState::finished,
					   host::Layout layout = host::Layout::linear);

} // namespace captive_portal::test
