// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/failure.h"
#include "cpctl/findings.h"

namespace cpctl
{

namespace
{

constexpr uint32_t everybody = 0006;

} // namespace

void check_module(Machine &machine, const std::string &device, const ReadStatusFile &read, Findings &findings)
{
	if (machine.list("/sys/module/captive_portal").empty()) {
		findings.add({"module", "captive_portal", "the module is not loaded, so every client passes",
			      "modprobe captive_portal"});
		return;
	}
	const std::optional<FileStatus> status = machine.status(device);
	if (!status) {
		findings.add({"device", device, "there is no such device, so nobody can command the module",
			      "start udev, or mount devtmpfs"});
	} else if (!status->is_character_device) {
		findings.add({"device", device, "this is no device, but a file in its place",
			      "rm " + device + ", and load the module again"});
	} else if ((status->mode & everybody) != 0) {
		findings.add({"device-mode", device,
			      "everybody may open it, and so admit clients and keep the daemon out",
			      "chmod 0600 " + device + ", and look at the udev rules"});
	}
	for (const char *const name : {"status", "clients", "garden", "counters", "cache"}) {
		try {
			static_cast<void>(read(name));
		} catch (const Failure &failure) {
			findings.add({"status-files", name,
				      std::string("this status file cannot be read: ") + failure.what(),
				      "run cpctl as root, with the module that it came with"});
		}
	}
}

} // namespace cpctl
