// A daemon's other business, beside the frames: stations come and go that send nothing, whole lists are read, the MIREL
// row's rules are replaced, which asks for every cached address anew. Nothing of it may change what becomes of a frame.
#pragma once

#include <atomic>
#include <cstdint>
#include <sys/types.h>

namespace load
{

class Device;

class Meanwhile
{
public:
	// Its process calls through the same open device; it begins at once.
	explicit Meanwhile(Device &);
	~Meanwhile();

	// False if one of its calls failed. Everything that it added is off again.
	bool finish();
	uint64_t calls() const { return shared.calls; }

private:
	struct Shared {
		std::atomic<bool> must_end;
		std::atomic<uint64_t> calls;
	};

	void work(Device &);

	Shared &shared;
	pid_t process;
};

} // namespace load
