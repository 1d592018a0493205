// SPDX-License-Identifier: GPL-2.0-only
// Network devices of the initial namespace.
#pragma once

#include <array>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/platform.h"

namespace captive_portal::host
{

struct Device {
	std::array<uint8_t, 6> mac{};
	// Absent: the device has no IPv4 configuration. Empty: it has one without an address. Network order.
	std::optional<std::vector<uint32_t>> ipv4{};
	// Absent: the device is no bridge port.
	std::optional<std::string> bridge{};
	// The device is a bridge port, but its bridge cannot be reached.
	bool bridge_unreachable = false;
};

// Any thread may call any of it, also while hooks run.
class Devices
{
public:
	// Adds the device, or puts it in the place of the one with this name.
	void put(const std::string &name, Device device);
	void remove(const std::string &name);

	[[nodiscard]] std::optional<Device> find(const std::string &name) const;

	// The answers of the seam's three calls: cp_first_ipv4_of_device(), cp_hardware_address_of_device() and
	// cp_bridge_of_port().
	[[nodiscard]] cp_ipv4_result first_ipv4(const char *name, uint32_t *address) const;
	[[nodiscard]] int hardware_address(const char *name, uint8_t *mac) const;
	[[nodiscard]] cp_bridge_result bridge_of_port(const char *port, char *bridge, size_t size) const;

	// Lookups so far, by any of the seam's three calls.
	[[nodiscard]] uint64_t lookups() const;

private:
	mutable std::mutex mutex_;
	std::map<std::string, Device> devices_;
	mutable uint64_t lookups_ = 0;
};

} // namespace captive_portal::host
