// What ends a run: the machine does not do what a load needs.
#pragma once

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace load
{

struct Trouble : std::runtime_error {
	using std::runtime_error::runtime_error;
};

[[noreturn]] inline void throw_errno(const std::string &what)
{
	throw Trouble(what + ": " + strerror(errno));
}

} // namespace load
