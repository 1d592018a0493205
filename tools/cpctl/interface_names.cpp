// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/interface_names.h"

#include "cpctl/failure.h"
#include "cpctl/quoted.h"

namespace cpctl
{

namespace
{

std::string name_of(uint32_t radio, uint32_t vap)
{
	return "wlan-" + std::to_string(radio) + "-" + std::to_string(vap);
}

} // namespace

Interface interface_of_row(uint32_t row)
{
	return {name_of(row / CP_VAPS_PER_RADIO + 1, row % CP_VAPS_PER_RADIO + 1), row};
}

Interface owe_interface_of_row(uint32_t row)
{
	return {name_of(row / CP_OWE_VAPS_PER_RADIO + 1, row % CP_OWE_VAPS_PER_RADIO + CP_OWE_FIRST_VAP), row};
}

Interface parse_interface(std::string_view name)
{
	for (uint32_t row = 0; row < CP_WIRELESS_INTERFACES; row++) {
		if (interface_of_row(row).name == name) {
			return interface_of_row(row);
		}
	}
	throw usage_failure(quoted(name) + " is no wireless interface: they are wlan-1-1 to wlan-3-8 "
					   "(radio 1 to 3, virtual access point 1 to 8)");
}

Interface parse_owe_interface(std::string_view name)
{
	for (uint32_t row = 0; row < CP_OWE_INTERFACES; row++) {
		if (owe_interface_of_row(row).name == name) {
			return owe_interface_of_row(row);
		}
	}
	throw usage_failure(quoted(name) + " is no OWE interface: they are wlan-1-14 to wlan-3-16 "
					   "(radio 1 to 3, virtual access point 14 to 16)");
}

} // namespace cpctl
