// SPDX-License-Identifier: GPL-2.0-only
// Read sections, and waiting for those that are open: real ones, so that the address sanitizer sees a reader whose memory
// was freed too early, and the thread sanitizer one that nothing orders.
#pragma once

namespace captive_portal::host
{

// The calling thread is inside a read section while this lives. They do not nest.
class ReadSection
{
public:
	ReadSection();
	~ReadSection();
	ReadSection(const ReadSection &) = delete;
	ReadSection &operator=(const ReadSection &) = delete;
};

// Returns when every section that was open at the call has ended. Dies inside a section.
void wait_for_readers();

} // namespace captive_portal::host
