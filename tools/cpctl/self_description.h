// SPDX-License-Identifier: GPL-2.0-only
// What shells and the manual's makers ask of cpctl, in words that people have no use for and --help does not show:
// "--complete WORD..." (completion.h) and "--generate man" (manual.h).
#pragma once

#include <optional>
#include <span>
#include <string>

namespace CLI
{
class App;
}

namespace cpctl
{

// The answer, if `words` begin with one of these.
[[nodiscard]] std::optional<std::string> describe_itself(const CLI::App &app, std::span<const std::string> words);

} // namespace cpctl
