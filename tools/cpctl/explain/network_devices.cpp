// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/explain/network_devices.h"

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>

#include <ifaddrs.h>
#include <netinet/in.h>

#include "cpctl/failure.h"

namespace cpctl
{

namespace
{

namespace fs = std::filesystem;

// First addresses come first, as the kernel lists them.
std::map<std::string, std::vector<Ipv4Address>> ipv4_addresses()
{
	ifaddrs *list = nullptr;
	if (getifaddrs(&list) != 0) {
		throw Failure(ExitCode::unavailable, "the addresses of network devices cannot be read");
	}
	const std::unique_ptr<ifaddrs, void (*)(ifaddrs *)> owner(list, freeifaddrs);
	std::map<std::string, std::vector<Ipv4Address>> addresses;
	for (const ifaddrs *entry = list; entry != nullptr; entry = entry->ifa_next) {
		if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) {
			continue;
		}
		const auto *const address = reinterpret_cast<const sockaddr_in *>(entry->ifa_addr);
		// An address may have a label of its own behind the device's name.
		const std::string label = entry->ifa_name;
		addresses[label.substr(0, label.find(':'))].push_back({address->sin_addr.s_addr});
	}
	return addresses;
}

} // namespace

std::vector<NetworkDevice> read_network_devices()
{
	std::map<std::string, std::vector<Ipv4Address>> addresses = ipv4_addresses();
	std::vector<NetworkDevice> devices;
	std::error_code error;
	for (const fs::directory_entry &entry : fs::directory_iterator("/sys/class/net", error)) {
		NetworkDevice device = {.name = entry.path().filename().string()};
		std::string mac;
		if (!(std::ifstream(entry.path() / "address") >> mac)) {
			continue;
		}
		try {
			device.mac = parse_mac(mac);
		} catch (const Failure &) {
			// Of another kind than Ethernet's.
			continue;
		}
		if (fs::exists("/proc/sys/net/ipv4/conf/" + device.name, error)) {
			device.ipv4 = addresses[device.name];
		}
		device.bridge = fs::read_symlink(entry.path() / "brport/bridge", error).filename().string();
		devices.push_back(std::move(device));
	}
	return devices;
}

} // namespace cpctl
