// SPDX-License-Identifier: GPL-2.0-only
#include "platform/host/devices.h"

#include <algorithm>

#include "platform/host/bookkeeping.h"

namespace captive_portal::host
{

void Devices::put(const std::string &name, Device device)
{
	const BookkeepingGuard guard(mutex_);
	devices_[name] = std::move(device);
}

void Devices::remove(const std::string &name)
{
	const BookkeepingGuard guard(mutex_);
	devices_.erase(name);
}

std::optional<Device> Devices::find(const std::string &name) const
{
	const BookkeepingGuard guard(mutex_);
	++lookups_;
	const auto found = devices_.find(name);
	return found == devices_.end() ? std::nullopt : std::optional<Device>(found->second);
}

cp_ipv4_result Devices::first_ipv4(const char *name, uint32_t *address) const
{
	const std::optional<Device> device = find(name);
	if (!device.has_value()) {
		return CP_IPV4_NO_DEVICE;
	}
	if (!device->ipv4.has_value()) {
		return CP_IPV4_NO_CONFIGURATION;
	}
	if (device->ipv4->empty()) {
		return CP_IPV4_NO_ADDRESS;
	}
	*address = device->ipv4->front();
	return CP_IPV4_FOUND;
}

int Devices::hardware_address(const char *name, uint8_t *mac) const
{
	const std::optional<Device> device = find(name);
	if (!device.has_value()) {
		return 0;
	}
	std::ranges::copy(device->mac, mac);
	return 1;
}

cp_bridge_result Devices::bridge_of_port(const char *port, char *bridge, size_t size) const
{
	const std::optional<Device> device = find(port);
	if (!device.has_value()) {
		return CP_BRIDGE_NO_DEVICE;
	}
	if (device->bridge_unreachable) {
		return CP_BRIDGE_UNREACHABLE;
	}
	if (!device->bridge.has_value()) {
		return CP_BRIDGE_NOT_A_PORT;
	}
	const size_t length = device->bridge->copy(bridge, size - 1);
	bridge[length] = '\0';
	return CP_BRIDGE_FOUND;
}

uint64_t Devices::lookups() const
{
	const BookkeepingGuard guard(mutex_);
	return lookups_;
}

} // namespace captive_portal::host
