// SPDX-License-Identifier: GPL-2.0-only
// Defines CP_THREAD_SANITIZER where the compiler instruments for it (a kernel's race detector included).
#pragma once

#if defined(__SANITIZE_THREAD__)
#define CP_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define CP_THREAD_SANITIZER 1
#endif
#endif
