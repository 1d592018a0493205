// SPDX-License-Identifier: GPL-2.0-only
#include "platform/host/status_files.h"

#include <mutex>
#include <span>

#include "platform/host/context.h"
#include "platform/host/status_text.h"

namespace captive_portal::host
{

int StatusFiles::create(const cp_status_directory *directory)
{
	might_sleep("cp_status_create");
	++create_calls_;
	if (const int error = next_error_.exchange(0); error != 0) {
		return error;
	}
	const std::unique_lock alone(running_);
	if (directory_ != nullptr) {
		die("status files made twice");
	}
	directory_ = directory;
	return 0;
}

void StatusFiles::remove(const cp_status_directory *directory)
{
	might_sleep("cp_status_remove");
	const std::unique_lock alone(running_);
	if (directory_ != nullptr && directory_ != directory) {
		die("other status files are removed than were made");
	}
	directory_ = nullptr;
}

const cp_status_directory *StatusFiles::directory() const
{
	const std::shared_lock shared(running_);
	return directory_;
}

std::optional<std::string> StatusFiles::read(const std::string &name) const
{
	const std::shared_lock shared(running_);
	if (directory_ == nullptr) {
		return std::nullopt;
	}
	for (const cp_status_file &file : std::span(directory_->files, directory_->file_count)) {
		if (file.name != name) {
			continue;
		}
		cp_status_text text;
		for (uint32_t part = 0; part < file.parts; ++part) {
			const size_t before = text.characters.size();
			file.write_part(part, &text);
			text.characters.resize(before);
			file.write_part(part, &text);
		}
		return text.characters;
	}
	return std::nullopt;
}

} // namespace captive_portal::host
