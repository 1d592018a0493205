// SPDX-License-Identifier: GPL-2.0-only
// Walled-garden rules as people write them.
#pragma once

#include <string>
#include <string_view>

#include "lib/captiveportal.h"

namespace libcaptiveportal
{

// Throws Failure(INVALID) for what the module would cut or never match.
[[nodiscard]] captiveportal_rule parse_rule(std::string_view text);
[[nodiscard]] captiveportal_rule parse_default_rule(std::string_view text);

[[nodiscard]] std::string format_rule(const captiveportal_rule &rule);

// Throws Failure(INVALID) for a rule that no text gives.
void require_rule(const captiveportal_rule &rule);
void require_default_rule(const captiveportal_rule &rule);

} // namespace libcaptiveportal
