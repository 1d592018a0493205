// SPDX-License-Identifier: GPL-2.0-only
// Words that one side writes under a lock, or with none, and another reads without that lock. Each such access goes
// through these two, so that a reader sees an old or a new value and never a torn one, and so that the places can be
// found by name. No order between different words is promised, but by the pair with order below.
#pragma once

#include "base/thread_sanitizer.h"
#include "captive_portal/interface_index.h"

namespace captive_portal
{

template <size_t size> struct NumberOfSize;
template <> struct NumberOfSize<1> {
	using Type = uint8_t;
};
template <> struct NumberOfSize<2> {
	using Type = uint16_t;
};
template <> struct NumberOfSize<4> {
	using Type = uint32_t;
};
template <> struct NumberOfSize<8> {
	using Type = uint64_t;
};

// A compiler reads all other memory anew after an atomic operation, with all that it knew about a packet. So the word is
// read as a volatile number of its size, as a kernel reads it; the thread sanitizer knows atomic operations alone.
template <typename T> [[nodiscard]] inline T load_word(const T &word)
{
#ifdef CP_THREAD_SANITIZER
	T value;
	__atomic_load(&word, &value, __ATOMIC_RELAXED);
	return value;
#else
	struct [[gnu::may_alias]] Word {
		// NOLINTNEXTLINE(bugprone-sizeof-expression): a pointer is a word.
		typename NumberOfSize<sizeof(T)>::Type number;
	};
	return __builtin_bit_cast(T, reinterpret_cast<const volatile Word *>(&word)->number);
#endif
}

template <typename T> inline void store_word(T &word, T value)
{
	static_assert(sizeof(T) <= sizeof(uint64_t));
	__atomic_store(&word, &value, __ATOMIC_RELAXED);
}

// The same with order: whoever acquires a word that was released sees all that was written before it, and makes later
// reads after it: those of load_word() and of this, and those through the word if it is a pointer. An x86 processor orders
// all its reads so, and a compiler leaves volatile ones in their order.
template <typename T> [[nodiscard]] inline T load_word_acquire(const T &word)
{
#if defined(__x86_64__) && !defined(CP_THREAD_SANITIZER)
	return load_word(word);
#else
	T value;
	__atomic_load(&word, &value, __ATOMIC_ACQUIRE);
	return value;
#endif
}

template <typename T> inline void store_word_release(T &word, T value)
{
	// NOLINTNEXTLINE(bugprone-sizeof-expression): a pointer is a word.
	static_assert(sizeof(T) <= sizeof(uint64_t));
	__atomic_store(&word, &value, __ATOMIC_RELEASE);
}

// A word of any alignment, read once. Beside a writer it may be half old and half new. The thread sanitizers know no such
// word: theirs is read byte by byte.
[[nodiscard]] inline uint64_t load_unaligned_word(const char *bytes)
{
#ifdef CP_THREAD_SANITIZER
	char copy[sizeof(uint64_t)];
	for (unsigned i = 0; i < sizeof(copy); ++i) {
		copy[i] = load_word(bytes[i]);
	}
	return __builtin_bit_cast(uint64_t, copy);
#else
	struct [[gnu::packed, gnu::may_alias]] Word
	{
		uint64_t value;
	};
	return static_cast<const volatile Word *>(static_cast<const void *>(bytes))->value;
#endif
}

// An interface name that is read without a lock: two words, each whole, so a reader that meets a writer may see half of
// either name, but never a byte that neither had. Scans of it stop at the field's end.
struct alignas(uint64_t) AtomicName {
	uint64_t words[CP_INTERFACE_NAME_SIZE / sizeof(uint64_t)];

	void load(char (&name)[CP_INTERFACE_NAME_SIZE]) const
	{
		for (unsigned i = 0; i < CP_INTERFACE_NAME_SIZE / sizeof(uint64_t); ++i) {
			const uint64_t word = load_word(words[i]);
			__builtin_memcpy(name + i * sizeof(word), &word, sizeof(word));
		}
	}

	void store(const char (&name)[CP_INTERFACE_NAME_SIZE])
	{
		for (unsigned i = 0; i < CP_INTERFACE_NAME_SIZE / sizeof(uint64_t); ++i) {
			uint64_t word = 0;
			__builtin_memcpy(&word, name + i * sizeof(word), sizeof(word));
			store_word(words[i], word);
		}
	}
};

static_assert(sizeof(AtomicName) == CP_INTERFACE_NAME_SIZE);

} // namespace captive_portal
