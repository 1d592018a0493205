// SPDX-License-Identifier: GPL-2.0-only
// The parser of DNS answers on their way to wireless clients.
#pragma once

#include "captive_portal/fixed_width.h"

namespace captive_portal
{

// Reads the DNS message of `length` bytes at `message`, and stores every IPv4 address of its answer section in the
// address cache under the name that was asked for, if it is a successful answer to one A question. What it takes for a
// name and which records it skips is in docs/garden-dns.md. Addresses stored before a malformed record stay stored.
// -1 for 12 bytes and less (`length` may be negative, and `message` is not looked at then), otherwise 0.
//
// Reads no byte outside the message, changes none, keeps no pointer into it, allocates nothing but what the cache and
// the rule matcher allocate. Takes walledgarden_lock, then dns_list_lock, never both. Softirq context.
int32_t parse_dns(const uint8_t *message, int32_t length);

} // namespace captive_portal
