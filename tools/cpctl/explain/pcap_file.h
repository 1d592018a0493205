// SPDX-License-Identifier: GPL-2.0-only
// Frames of a capture file, as tcpdump -w writes it.
#pragma once

#include <string>
#include <vector>

#include "cpctl/explain/module_copy.h"

namespace cpctl
{

// All frames of the file, cut where the capture has cut them. Throws Failure(usage) for a file that is not there, is no
// such capture, ends in the midst of a frame, or has frames of another kind than Ethernet's.
[[nodiscard]] std::vector<FrameBytes> read_pcap_file(const std::string &path);

} // namespace cpctl
