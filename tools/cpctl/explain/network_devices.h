// SPDX-License-Identifier: GPL-2.0-only
// What the module asks the kernel about network devices.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "cpctl/addresses.h"

namespace cpctl
{

struct NetworkDevice {
	std::string name;
	MacAddress mac = {};
	// In the kernel's order; nothing when IPv4 is not configured on the device at all.
	std::optional<std::vector<Ipv4Address>> ipv4 = {};
	// Empty for a device that is no bridge's port.
	std::string bridge = {};
};

using ReadNetworkDevices = std::function<std::vector<NetworkDevice>()>;

// Those of the network namespace that cpctl runs in. A device that goes meanwhile is left out.
[[nodiscard]] std::vector<NetworkDevice> read_network_devices();

} // namespace cpctl
