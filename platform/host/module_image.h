// SPDX-License-Identifier: GPL-2.0-only
// The module's static state: the writable data of the core's objects, which the linker script beside this file lays
// together. A machine starts with it as a fresh load of the module would.
#pragma once

#include <array>
#include <cstddef>
#include <span>

namespace captive_portal::host
{

// Puts every variable of the core back to its value before main().
void reload_module_image();

// Initialised and zeroed variables; with the address sanitizer, its red zones lie between them.
[[nodiscard]] std::array<std::span<const std::byte>, 2> module_image();

} // namespace captive_portal::host
