// SPDX-License-Identifier: GPL-2.0-only
// The module's proc file.
#pragma once

#include <atomic>
#include <functional>
#include <optional>
#include <shared_mutex>
#include <string>

#include "platform/platform.h"

namespace captive_portal::host
{

class ProcFiles
{
public:
	struct Record {
		std::string directory;
		std::string name;
		uint16_t mode;
	};

	[[nodiscard]] int create(const cp_proc_file *file);
	// Returns when no read or write runs any more. Does nothing when there is no file.
	void remove(const cp_proc_file *file);

	// The next creation gives this negative error.
	void fail_next_creation(int error) { next_error_ = error; }
	[[nodiscard]] uint32_t create_calls() const { return create_calls_; }
	[[nodiscard]] uint32_t remove_calls() const { return remove_calls_; }
	// The file as it was made; absent while there is none.
	[[nodiscard]] std::optional<Record> file() const;

	// A read or a write of the file, or -5 when it is not there: what a process gets that still holds it open.
	[[nodiscard]] long call(const std::function<long()> &body) const;

private:
	// Shared while a read or a write runs.
	mutable std::shared_mutex running_;
	std::optional<Record> file_;
	int next_error_ = 0;
	std::atomic<uint32_t> create_calls_ = 0;
	std::atomic<uint32_t> remove_calls_ = 0;
};

} // namespace captive_portal::host
