// SPDX-License-Identifier: GPL-2.0-only
// The module's own core, run inside of this program: it is given what the running module has stored, and then decides on
// frames as that would.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "captive_portal/reasons.h"
#include "cpctl/addresses.h"
#include "cpctl/control_device.h"
#include "cpctl/explain/network_devices.h"

namespace cpctl
{

using FrameBytes = std::vector<uint8_t>;

// The module's hooks, in the order in which a frame meets them.
enum class Hook { gatekeeper, portal_check, reply_rewrite };

// A frame on its way through the hooks. They may change all of it.
struct Packet {
	FrameBytes frame;
	uint32_t mark = 0;
	// For the access point itself, whatever its destination was.
	bool for_host = false;
};

// Something that the core counted.
struct Count {
	uint32_t row = CP_COUNTER_ROW_OTHER;
	cp_reason reason = CP_REASON_COUNT;
};

struct HookRun {
	bool accepted = false;
	std::vector<Count> counts;
	// What a module at the highest debug level logs, without line ends.
	std::vector<std::string> log;
};

// Takes the module's commands like its control device. There is one at a time: the core has its tables once in a program.
class ModuleCopy : public ControlDevice
{
public:
	virtual void put_device(const NetworkDevice &device) = 0;
	// The access point's own addresses, as an earlier frame has shown them.
	virtual void learn_access_point(Ipv4Address address, const MacAddress &mac) = 0;
	// As if a DNS answer had given the address for a name that the gardens of these rows permit, bit i for row i.
	virtual void cache_address(Ipv4Address address, uint32_t rows) = 0;

	// The row that the module takes for a device's name, if any: that of a companion's partner for a companion.
	[[nodiscard]] virtual std::optional<uint32_t> row_of_device(const std::string &name) const = 0;

	// `device` is the port by which the frame comes, at the last hook that by which it leaves.
	[[nodiscard]] virtual HookRun run(Hook hook, Packet &packet, const std::string &device) = 0;
};

using MakeModuleCopy = std::function<std::unique_ptr<ModuleCopy>()>;

// A started module whose tables are empty. Not there in a program that is built for a processor on which the core does not
// run.
[[nodiscard]] std::unique_ptr<ModuleCopy> make_module_copy();

} // namespace cpctl
