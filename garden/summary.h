// SPDX-License-Identifier: GPL-2.0-only
// The proc file that lists the cached addresses of permitted domains. A write selects what is listed and makes
// everything listable again; a read lists what no read has listed since.
#pragma once

#include "platform/platform.h"

namespace captive_portal
{

enum : uint32_t { SUMMARY_TARGET_SIZE = 20 };

// The selection: "all", "mirel", an address or an interface name, as it was written. Written with the
// mutex of reports and dns_list_lock held; either is enough to read it.
extern char summary_target[SUMMARY_TARGET_SIZE];

extern const cp_proc_file summary_file;

} // namespace captive_portal
