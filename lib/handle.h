// SPDX-License-Identifier: GPL-2.0-only
// The handle: records go to the module and are judged here and nowhere else.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "captive_portal/control.h"
#include "lib/captiveportal.h"
#include "lib/failure.h"

struct captiveportal {
	captiveportal_transport transport;
	void *context;
	bool read_back;
};

namespace libcaptiveportal
{

// Sent where the module's answer goes and no answer can be: still there afterwards, the module did not answer.
inline constexpr uint32_t unanswered = UINT32_MAX;

// Throws Failure when the device's result of the command is one.
void judge(cp_command command, long result);

[[nodiscard]] Failure no_answer(std::string_view what);
// What a store ends in that left nothing behind.
[[nodiscard]] Failure not_stored(std::string_view what);

template <typename Record> [[nodiscard]] long send(const captiveportal &portal, cp_command command, Record &record)
{
	return portal.transport.exchange(portal.context, command, &record, sizeof(record));
}

// Sends the record, which the module may fill, and judges the result.
template <typename Record> void exchange(const captiveportal &portal, cp_command command, Record &record)
{
	judge(command, send(portal, command, record));
}

} // namespace libcaptiveportal
