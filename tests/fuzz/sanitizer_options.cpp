// SPDX-License-Identifier: GPL-2.0-only
// How the sanitizers judge a fuzzer. What was freed is kept from use for the length of some inputs, not longer: a fuzzer's
// speed is its sight.

extern "C" const char *__asan_default_options()
{
	return "quarantine_size_mb=16:malloc_context_size=8:strict_string_checks=1";
}

extern "C" const char *__ubsan_default_options()
{
	return "print_stacktrace=1";
}
