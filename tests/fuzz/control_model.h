// SPDX-License-Identifier: GPL-2.0-only
// What one call of the control device does, worked out on values: a second opinion about every command.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/fuzz/module_state.h"

namespace captive_portal::test
{

struct ControlCall {
	int32_t command;
	// The record, as long as the command's; for command 11 the argument itself.
	std::vector<uint8_t> record;
	uint32_t argument;
	// How much of the record can be read and written, from its front.
	size_t readable;
	size_t writable;
	// The allocation of this call that fails, 1 the first; 0: none.
	uint64_t failing_allocation;
};

struct ControlEffect {
	long result;
	// What the caller finds in the record afterwards.
	std::vector<uint8_t> record;
	// Nodes that nothing points to any more.
	size_t lost = 0;
};

// Bytes of the command's record, 0 for one without.
[[nodiscard]] size_t record_size(int32_t command);

template <typename Record> [[nodiscard]] std::vector<uint8_t> bytes_of(const Record &record)
{
	const auto *const bytes = reinterpret_cast<const uint8_t *>(&record);
	return {bytes, bytes + sizeof(record)};
}

// Changes the state as the call does.
[[nodiscard]] ControlEffect apply(ModuleState &state, const ControlCall &call);

// Whether the rules of the row, or the default rules, permit the name; whether the row's rules permit the address.
[[nodiscard]] bool reference_permits_name(const ModuleState &state, size_t row, const std::string &name);
[[nodiscard]] bool reference_permits_address(const ModuleState &state, size_t row, uint32_t address);

} // namespace captive_portal::test
