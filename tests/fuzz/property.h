// SPDX-License-Identifier: GPL-2.0-only
// What a fuzzer demands of the module beyond what the sanitizers see.
#pragma once

#include "platform/host/context.h"

// Dies, so that the fuzzer keeps the input, unless the condition holds.
#define REQUIRE_PROPERTY(condition, text)                                                                              \
	do {                                                                                                           \
		if (!(condition)) {                                                                                    \
			::captive_portal::host::die("property broken: %s", text);                                      \
		}                                                                                                      \
	} while (false)
