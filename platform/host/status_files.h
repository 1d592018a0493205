// SPDX-License-Identifier: GPL-2.0-only
// The module's status files.
#pragma once

#include <atomic>
#include <optional>
#include <shared_mutex>
#include <string>

#include "platform/platform.h"

namespace captive_portal::host
{

class StatusFiles
{
public:
	[[nodiscard]] int create(const cp_status_directory *directory);
	// Returns when nobody reads any more. Does nothing when there are no files.
	void remove(const cp_status_directory *directory);

	// The next creation gives this negative error.
	void fail_next_creation(int error) { next_error_ = error; }
	[[nodiscard]] uint32_t create_calls() const { return create_calls_; }
	// The directory as it was made, null while there is none.
	[[nodiscard]] const cp_status_directory *directory() const;

	// The whole of a file; absent when there is no such file. Each part is asked for twice, as if the first time there had
	// been no room for it.
	[[nodiscard]] std::optional<std::string> read(const std::string &name) const;

private:
	// Shared while somebody reads.
	mutable std::shared_mutex running_;
	const cp_status_directory *directory_ = nullptr;
	std::atomic<int> next_error_ = 0;
	std::atomic<uint32_t> create_calls_ = 0;
};

} // namespace captive_portal::host
