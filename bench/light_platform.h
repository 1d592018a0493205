// SPDX-License-Identifier: GPL-2.0-only
// A kernel that costs next to nothing: what a benchmark counts over it is nearly the module's own.
//
// Locks are plain spin locks, allocation is a free list, the log counts lines and formats none, copies to and from user
// space are plain copies, packets are flat arrays, devices are found in a small hash table. Nothing is checked and
// nothing can be made to fail: that is the host platform's part.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "captive_portal/control.h"
#include "captive_portal/interface_index.h"
#include "platform/packet_fields.h"

namespace captive_portal::bench
{

// Takes the module away if it is there, and starts it anew on an access point with the bridge "br0" and its ports
// "wlan-1-1" to "wlan-3-8" and "eth0".
void restart_module();

// A frame in a flat array, and the view of it that a hook gets. The view points into the packet: it cannot be moved.
class FlatPacket
{
public:
	static constexpr size_t room = 512;

	FlatPacket() = default;
	FlatPacket(const FlatPacket &) = delete;
	FlatPacket &operator=(const FlatPacket &) = delete;

	// Makes it a packet that has just arrived with these bytes. Either name may be null; both are copied.
	void arrive(std::span<const uint8_t> frame, const char *in_name, const char *out_name);

	[[nodiscard]] cp_packet *view() { return &view_; }
	[[nodiscard]] const cp_ports *ports() const { return &ports_; }
	[[nodiscard]] uint8_t *bytes() { return bytes_.data(); }
	[[nodiscard]] uint32_t mark() const { return mark_; }
	[[nodiscard]] bool is_for_host() const { return for_host_; }
	void set_host() { for_host_ = true; }

private:
	alignas(64) std::array<uint8_t, room> bytes_;
	cp_packet view_;
	std::array<std::array<char, CP_INTERFACE_NAME_SIZE>, 2> names_; // whole fields, as a device has them
	cp_ports ports_;
	uint32_t mark_;
	bool for_host_;
};

// Seconds that the wall clock shows.
void set_wall_clock(int64_t seconds);
// Lines that were logged so far.
[[nodiscard]] uint64_t logged_lines();

// What captive_portal_ioctl() gives for a record.
template <typename Record> long command(cp_command number, Record &record)
{
	return captive_portal_ioctl(number, reinterpret_cast<unsigned long>(&record));
}

} // namespace captive_portal::bench
