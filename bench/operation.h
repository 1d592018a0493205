// SPDX-License-Identifier: GPL-2.0-only
// What is measured: one list of operations, which every driver runs in its own way.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace captive_portal::bench
{

// An operation on a module whose tables are filled to some size.
class Case
{
public:
	Case() = default;
	virtual ~Case() = default;
	Case(const Case &) = delete;
	Case &operator=(const Case &) = delete;

	// How often run() may be called after a restore() before the state differs too much from the one asked for.
	[[nodiscard]] virtual uint32_t batch() const { return 64; }
	// Puts everything back so that run(0) to run(runs - 1) may follow. Not measured.
	virtual void restore(uint32_t runs) { static_cast<void>(runs); }
	// The operation, measured.
	virtual void run(uint32_t number) = 0;
	// After restore(1) and run(0): ends the program unless the operation did what it is there for.
	virtual void verify() {}
};

struct Operation {
	std::string name;
	// What a size counts: "clients in each list", ...
	std::string unit;
	// From nearly empty to full; the last is compared with the first.
	std::vector<uint64_t> sizes;
	std::function<std::unique_ptr<Case>(uint64_t size)> make;
	// What the driver's own work costs is measured by this operation, and taken off.
	std::string baseline = "nothing";
	// From this size on restoring takes long: fewer runs.
	uint64_t few_runs_from = ~uint64_t{0};
};

// Baselines first.
[[nodiscard]] const std::vector<Operation> &all_operations();

void add_baselines(std::vector<Operation> &list);
void add_frame_operations(std::vector<Operation> &list);
void add_connection_operations(std::vector<Operation> &list);
void add_client_table_operations(std::vector<Operation> &list);
void add_name_operations(std::vector<Operation> &list);
void add_cache_operations(std::vector<Operation> &list);

// Ends the program with the text unless the condition holds.
void require(bool condition, const char *text);

} // namespace captive_portal::bench
