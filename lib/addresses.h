// SPDX-License-Identifier: GPL-2.0-only
// MAC and IPv4 addresses as people write them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "lib/captiveportal.h"

namespace libcaptiveportal
{

// Throws Failure(INVALID) for what is none.
[[nodiscard]] captiveportal_mac parse_mac(std::string_view text);

// Throws Failure(INVALID) for an address that no station sends from.
void require_station(const captiveportal_mac &mac);

[[nodiscard]] std::string format_mac(const captiveportal_mac &mac);

[[nodiscard]] bool same_mac(const captiveportal_mac &one, const captiveportal_mac &other);

// IPv4 addresses are numbers in network order.
[[nodiscard]] std::optional<uint32_t> scan_address(std::string_view text);

[[nodiscard]] std::string format_address(uint32_t address);

// The mask with `length` leading ones, 0 to 32.
[[nodiscard]] uint32_t mask_of_length(unsigned length);

// Number of leading ones, or nothing when ones follow a zero.
[[nodiscard]] std::optional<unsigned> length_of_mask(uint32_t mask);

} // namespace libcaptiveportal
