// Random numbers that repeat: a batch has dice of its own, made from the run's seed and the batch's number.
#pragma once

#include <cstdint>

namespace load
{

class Dice
{
public:
	Dice(uint64_t seed, uint64_t stream) : state(seed * 0x9e3779b97f4a7c15u + stream * 0xd1342543de82ef95u)
	{
		next();
	}

	// splitmix64
	uint64_t next()
	{
		uint64_t x = state += 0x9e3779b97f4a7c15u;
		x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9u;
		x = (x ^ (x >> 27)) * 0x94d049bb133111ebu;
		return x ^ (x >> 31);
	}

	uint32_t below(uint32_t bound) { return (next() >> 32) * bound >> 32; }
	bool one_in(uint32_t bound) { return below(bound) == 0; }

private:
	uint64_t state;
};

} // namespace load
