// SPDX-License-Identifier: GPL-2.0-only
// Files that are there whole, or as they were before.
#pragma once

#include <string>
#include <string_view>

namespace cpctl
{

// Writes `text` to a temporary file beside `path`, and puts it in the place of `path` once it is on the disk. A file that
// is there must begin with `first_line`, or be empty, and keeps its owner and mode; a new one has mode 0600. Throws
// Failure(usage) for a file that begins otherwise or is no regular one, Failure(unavailable) when it cannot be written.
void replace_file(const std::string &path, std::string_view text, std::string_view first_line);

} // namespace cpctl
