// SPDX-License-Identifier: GPL-2.0-only
// A guard for the host kernel's own records, such as the captured log. The thread sanitizer is told to look away while
// it lives: two threads of the module that both write a log line must not count as synchronised by that, or the
// sanitizer would miss the very races that it is there to find.
#pragma once

#include <mutex>

#include "base/thread_sanitizer.h"

#ifdef CP_THREAD_SANITIZER
extern "C" {
void AnnotateIgnoreReadsBegin(const char *file, int line);
void AnnotateIgnoreReadsEnd(const char *file, int line);
void AnnotateIgnoreWritesBegin(const char *file, int line);
void AnnotateIgnoreWritesEnd(const char *file, int line);
void AnnotateIgnoreSyncBegin(const char *file, int line);
void AnnotateIgnoreSyncEnd(const char *file, int line);
}
#endif

namespace captive_portal::host
{

class [[nodiscard]] BookkeepingGuard
{
public:
	explicit BookkeepingGuard(std::mutex &mutex) : mutex_(mutex)
	{
#ifdef CP_THREAD_SANITIZER
		AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
		AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
		AnnotateIgnoreSyncBegin(__FILE__, __LINE__);
#endif
		mutex_.lock();
	}
	~BookkeepingGuard()
	{
		mutex_.unlock();
#ifdef CP_THREAD_SANITIZER
		AnnotateIgnoreSyncEnd(__FILE__, __LINE__);
		AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
		AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
#endif
	}
	BookkeepingGuard(const BookkeepingGuard &) = delete;
	BookkeepingGuard &operator=(const BookkeepingGuard &) = delete;

private:
	std::mutex &mutex_;
};

} // namespace captive_portal::host
