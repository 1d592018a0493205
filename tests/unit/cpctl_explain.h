// SPDX-License-Identifier: GPL-2.0-only
// cpctl explain beside a module: the machine runs the module's core, and cpctl a copy of its own.
#pragma once

#include "cpctl/explain/explain_command.h"
#include "tests/support/cast.h"
#include "tests/unit/cpctl_core.h"

namespace captive_portal::test
{

// The machine's devices as cpctl would find them.
[[nodiscard]] inline std::vector<cpctl::NetworkDevice> devices_of_machine(const host::Machine &machine)
{
	std::vector<std::string> names = {"br0", "eth0", "wlan-1-9", "wlan-1-14", "wlanx"};
	for (int radio = 1; radio <= 3; radio++) {
		for (int vap = 1; vap <= 8; vap++) {
			names.push_back("wlan-" + std::to_string(radio) + "-" + std::to_string(vap));
		}
	}
	std::vector<cpctl::NetworkDevice> devices;
	for (const std::string &name : names) {
		const auto found = machine.devices.find(name);
		if (!found.has_value()) {
			continue;
		}
		cpctl::NetworkDevice device = {.name = name, .mac = found->mac};
		if (found->ipv4.has_value()) {
			device.ipv4.emplace();
			for (const uint32_t address : *found->ipv4) {
				device.ipv4->push_back({address});
			}
		}
		device.bridge = found->bridge.value_or("");
		devices.push_back(device);
	}
	return devices;
}

class CpctlExplain : public CpctlWithTheCore
{
protected:
	CpctlExplain()
	{
		explaining = {.make_copy = cpctl::make_module_copy,
			      .read_devices = [this] { return devices_of_machine(machine); }};
	}

	void SetUp() override
	{
		build_access_point(machine);
		CpctlWithTheCore::SetUp();
	}

	// What cpctl says of frames, whose description is a line of words.
	std::string explained(const std::string &words)
	{
		std::istringstream stream("explain " + words);
		return answer({std::istream_iterator<std::string>(stream), {}});
	}
};

} // namespace captive_portal::test
