// SPDX-License-Identifier: GPL-2.0-only
// How the sanitizers judge a test program, however it is started.

extern "C" const char *__asan_default_options()
{
	return "detect_leaks=1:detect_stack_use_after_return=1:strict_string_checks=1:check_initialization_order=1";
}

extern "C" const char *__ubsan_default_options()
{
	return "print_stacktrace=1";
}

extern "C" const char *__tsan_default_options()
{
	return "halt_on_error=1:second_deadlock_stack=1";
}
