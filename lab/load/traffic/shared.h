// Memory that the processes of a run share; they are told by it when to begin and to end.
#pragma once

#include "trouble.h"

#include <new>
#include <sys/mman.h>

namespace load
{

template <typename Value> Value &make_shared_memory()
{
	void *memory = mmap(nullptr, sizeof(Value), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
	if (memory == MAP_FAILED)
		throw_errno("memory for two processes");
	return *new (memory) Value;
}

} // namespace load
