// SPDX-License-Identifier: GPL-2.0-only
#include "tests/support/cast.h"

#include <string>

namespace captive_portal::test
{

void build_access_point(host::Machine &machine)
{
	machine.devices.put("br0", {.mac = access_point.mac, .ipv4 = {{access_point.address.raw}}});
	machine.devices.put("eth0", {.mac = {0x02, 0xbb, 0, 0, 0, 0x01}, .bridge = "br0"});
	for (uint8_t radio = 1; radio <= 3; ++radio) {
		for (uint8_t vap = 1; vap <= 8; ++vap) {
			machine.devices.put("wlan-" + std::to_string(radio) + "-" + std::to_string(vap),
					    {.mac = {0x02, 0xcc, radio, vap, 0, 0}, .bridge = "br0"});
		}
	}
}

} // namespace captive_portal::test
