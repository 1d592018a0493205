// SPDX-License-Identifier: GPL-2.0-only
// The two sections of a DNS message that the parser reads. For dns_parser.cpp and its tests.
#pragma once

#include "garden/dns_name.h"

namespace captive_portal
{

// Reads the name of the question at `query`, which lies inside the message; `end` is the message's last byte. `buff`
// has room for DNS_NAME_SIZE bytes and gets the dotted name and a NUL. Every byte but 0 is a label's length. Gives the
// address of the zero byte behind the name, or null when a label reaches the last byte.
[[nodiscard]] const uint8_t *read_question_name(char *buff, const uint8_t *query, const uint8_t *end);

// Stores the addresses of the `count` records at `answer`, which may be the byte behind the last, under the name in
// `buff`. `dns` is the message's start, `end` its last byte. False at the first record that cannot be read.
[[nodiscard]] bool store_answers(const uint8_t *dns, const char *buff, const uint8_t *answer, const uint8_t *end,
				 uint16_t count, uint32_t is_match_wg);

} // namespace captive_portal
