// SPDX-License-Identifier: GPL-2.0-only
// A kernel for a core that runs inside of cpctl: one thread, no packets but those that it is shown, nothing that fails. What
// the core logs and counts is kept until somebody takes it.
#pragma once

#include <string>
#include <vector>

#include "cpctl/explain/module_copy.h"
#include "platform/host/devices.h"
#include "platform/packet_fields.h"

namespace cpctl::explain
{

// Of the machine that the core is told of.
[[nodiscard]] captive_portal::host::Devices &core_devices();

// Since the last look; each forgets them.
[[nodiscard]] std::vector<Count> take_counts();
[[nodiscard]] std::vector<std::string> take_log();

// The packet and its mark as a hook gets them. They point into `packet`.
class HookPacket
{
public:
	explicit HookPacket(Packet &packet);
	HookPacket(const HookPacket &) = delete;
	HookPacket &operator=(const HookPacket &) = delete;

	[[nodiscard]] cp_packet *seam() { return &seam_; }
	[[nodiscard]] static Packet &of(const cp_packet *packet) { return *static_cast<Packet *>(packet->buffer); }

private:
	cp_packet seam_;
};

} // namespace cpctl::explain
