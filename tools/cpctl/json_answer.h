// SPDX-License-Identifier: GPL-2.0-only
// Answers for programs. Their keys are those of cpctl.schema.json, which tells of every answer.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "cpctl/session.h"

namespace cpctl
{

// Keys stay in the order in which they are written.
using Json = nlohmann::ordered_json;

// As -j or -p want it. What is no UTF-8 becomes U+FFFD.
[[nodiscard]] std::string json_text(const Json &answer, JsonOutput output);
void print_json(const Session &session, const Json &answer);

} // namespace cpctl
