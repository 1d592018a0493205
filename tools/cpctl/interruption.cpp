// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/interruption.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace cpctl
{

namespace
{

// A signal puts a byte into it, so that none is lost between a look and a wait.
std::array<int, 2> signal_pipe = {-1, -1};

void note_signal(int)
{
	const int error = errno;
	// A full pipe says enough.
	static_cast<void>(::write(signal_pipe[1], "", 1) == 1);
	errno = error;
}

void catch_signals()
{
	if (signal_pipe[0] >= 0 || ::pipe2(signal_pipe.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
		return;
	}
	struct sigaction action = {};
	action.sa_handler = note_signal;
	// The second one does what it always does.
	action.sa_flags = static_cast<int>(SA_RESETHAND);
	sigemptyset(&action.sa_mask);
	::sigaction(SIGINT, &action, nullptr);
	::sigaction(SIGTERM, &action, nullptr);
}

} // namespace

Woken wait_for_input(int file, std::chrono::milliseconds longest)
{
	catch_signals();
	std::array<pollfd, 2> files = {pollfd{.fd = signal_pipe[0], .events = POLLIN, .revents = 0},
				       pollfd{.fd = file, .events = POLLIN, .revents = 0}};
	const auto time = static_cast<int>(std::clamp<std::chrono::milliseconds::rep>(longest.count(), 0, INT_MAX));
	const int ready = ::poll(files.data(), files.size(), time);
	if (files[0].revents != 0 || ready < 0) {
		return Woken::interrupted;
	}
	return ready == 0 ? Woken::time_is_over : Woken::input;
}

bool pause_for(std::chrono::milliseconds longest)
{
	return wait_for_input(-1, longest) != Woken::interrupted;
}

} // namespace cpctl
