// SPDX-License-Identifier: GPL-2.0-only
// The lists of clients as the status file `clients` tells them: whole, where the device's answer ends.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "cpctl/addresses.h"
#include "cpctl/status_files.h"

namespace cpctl
{

// By table and interface, which is empty for a table that is one for all. Each list in its order, with a client as often
// as it is listed; an empty list is left out.
using ClientLists = std::map<std::pair<std::string, std::string>, std::vector<MacAddress>>;

// Throws Failure(unavailable).
[[nodiscard]] ClientLists read_client_lists(const ReadStatusFile &read_status_file);

} // namespace cpctl
