// SPDX-License-Identifier: GPL-2.0-only
#include "platform/host/proc_files.h"

#include <mutex>
#include <utility>

#include "platform/host/context.h"

namespace captive_portal::host
{

namespace
{

constexpr long input_output_error = -5;

} // namespace

int ProcFiles::create(const cp_proc_file *file)
{
	might_sleep("cp_proc_create");
	++create_calls_;
	if (const int error = std::exchange(next_error_, 0); error != 0) {
		return error;
	}
	const std::unique_lock alone(running_);
	if (file_.has_value()) {
		die("proc file made twice");
	}
	file_ = Record{file->directory, file->name, file->mode};
	return 0;
}

void ProcFiles::remove(const cp_proc_file *file)
{
	might_sleep("cp_proc_remove");
	++remove_calls_;
	const std::unique_lock alone(running_);
	if (file_.has_value() && (file_->directory != file->directory || file_->name != file->name)) {
		die("another proc file is removed than was made");
	}
	file_.reset();
}

std::optional<ProcFiles::Record> ProcFiles::file() const
{
	const std::shared_lock shared(running_);
	return file_;
}

long ProcFiles::call(const std::function<long()> &body) const
{
	const std::shared_lock shared(running_);
	return file_.has_value() ? body() : input_output_error;
}

} // namespace captive_portal::host
