// SPDX-License-Identifier: GPL-2.0-only
// From an interface's mark, or one of its redirect ports, back to its index: the inverse of the arithmetic in marks.h and
// ports.h.
#pragma once

#include "captive_portal/ports.h"

namespace captive_portal
{

// What these give for a number that no wireless interface has.
inline constexpr uint32_t no_interface = CP_WIRELESS_INTERFACES;

// The interface whose mark it is.
[[nodiscard]] constexpr uint32_t interface_of_mark(uint32_t mark)
{
	const uint32_t offset = mark - CP_MARK_FIRST_INTERFACE;
	const uint32_t radio = offset / CP_MARK_STEP_PER_RADIO;
	const uint32_t vap = offset % CP_MARK_STEP_PER_RADIO;
	return radio < CP_RADIOS && vap < CP_VAPS_PER_RADIO ? radio * CP_VAPS_PER_RADIO + vap : no_interface;
}

// The interface one of whose two redirect ports (host order) it is.
[[nodiscard]] constexpr uint32_t interface_of_port(uint16_t port)
{
	const uint32_t offset = uint32_t{port} - CP_PORT_FIRST_INTERFACE_HTTP;
	constexpr uint32_t last = (CP_RADIOS - 1) * CP_PORT_STEP_PER_RADIO + CP_PORT_HTTPS_STEP + CP_VAPS_PER_RADIO - 1;
	if (offset > last) [[likely]] {
		return no_interface;
	}
	const uint32_t place = offset % CP_PORT_STEP_PER_RADIO;
	if (place >= uint32_t{CP_PORT_HTTPS_STEP} + CP_VAPS_PER_RADIO) [[likely]] {
		return no_interface;
	}
	const uint32_t radio = offset / CP_PORT_STEP_PER_RADIO;
	const uint32_t vap = place < CP_PORT_HTTPS_STEP ? place : place - CP_PORT_HTTPS_STEP;
	return vap < CP_VAPS_PER_RADIO ? radio * CP_VAPS_PER_RADIO + vap : no_interface;
}

} // namespace captive_portal
