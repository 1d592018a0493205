/* SPDX-License-Identifier: GPL-2.0-only */
/* What public_headers.c, compiled as C, tells to public_headers_test.cpp, compiled as C++. */
#ifndef TESTS_UNIT_PUBLIC_HEADERS_H
#define TESTS_UNIT_PUBLIC_HEADERS_H

#include <stddef.h>
#include <stdint.h>

struct seen_by_c {
	size_t cp_cmd;
	size_t cp_status;
	size_t wg_rule;
	size_t wg_cmd;
	size_t gk_cmd;
	size_t gk_list_reply;
	size_t gk_check_reply;
	uint32_t last_reputation_mark;
	const char *device_path;
};

#ifdef __cplusplus
extern "C" {
#endif

extern const struct seen_by_c seen_by_c;

uint32_t c_interface_mark(uint32_t index);
uint16_t c_https_port(uint32_t index);
uint32_t c_owe_index(uint32_t radio, uint32_t vap);

#ifdef __cplusplus
}
#endif

#endif
