/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * Fixed-width integers, structure checks and constant functions for headers that are read as C11, as C++20, in user
 * space and inside a kernel. In a kernel there is no <stdint.h>: C files include <linux/types.h> before this header,
 * C++ files get the types from the compiler's own names.
 */
#ifndef CAPTIVE_PORTAL_FIXED_WIDTH_H
#define CAPTIVE_PORTAL_FIXED_WIDTH_H

#if !defined(__KERNEL__)
#include <stddef.h>
#include <stdint.h>
#elif defined(__cplusplus)
typedef __UINT8_TYPE__ uint8_t;
typedef __UINT16_TYPE__ uint16_t;
typedef __UINT32_TYPE__ uint32_t;
typedef __UINT64_TYPE__ uint64_t;
typedef __INT8_TYPE__ int8_t;
typedef __INT16_TYPE__ int16_t;
typedef __INT32_TYPE__ int32_t;
typedef __INT64_TYPE__ int64_t;
typedef __SIZE_TYPE__ size_t;
typedef __UINTPTR_TYPE__ uintptr_t;
#endif

#ifdef __cplusplus
#define CP_STATIC_ASSERT(condition, text) static_assert(condition, text)
/* A function of constants: a constant expression in C++, an inline function in C. */
#define CP_CONSTANT_FUNCTION constexpr
#else
#define CP_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#define CP_CONSTANT_FUNCTION static inline
#endif

/* The binary layout is the native one of a little-endian machine; these two say so at compile time. */
#define CP_ASSERT_SIZE(type, bytes) CP_STATIC_ASSERT(sizeof(type) == (bytes), #type " must have " #bytes " bytes")
#define CP_ASSERT_OFFSET(type, member, bytes)                                                                          \
	CP_STATIC_ASSERT(__builtin_offsetof(type, member) == (bytes), #type "." #member " must lie at offset " #bytes)

#endif
