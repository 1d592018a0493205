// SPDX-License-Identifier: GPL-2.0-only
// Values that mean something to the module, so that a fuzzer meets what it has set up; any other value can be had too.
#pragma once

#include <string>

#include "tests/fuzz/input.h"
#include "tests/support/cast.h"

namespace captive_portal::test
{

// Wireless, wired and odd interface names, or at most 20 bytes of the input.
[[nodiscard]] std::string pick_interface(Input &input);
// Names of the 24 wireless interfaces only.
[[nodiscard]] std::string pick_wireless_interface(Input &input);
[[nodiscard]] Mac pick_mac(Input &input);
[[nodiscard]] Ipv4Address pick_address(Input &input);
// Host order.
[[nodiscard]] uint16_t pick_port(Input &input);
[[nodiscard]] uint32_t pick_mark(Input &input);
// A name that may be asked for: dotted, at most 127 characters.
[[nodiscard]] std::string pick_domain(Input &input);
// A rule's pattern, at most 128 characters.
[[nodiscard]] std::string pick_pattern(Input &input);

} // namespace captive_portal::test
