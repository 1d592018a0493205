// SPDX-License-Identifier: GPL-2.0-only
// From a mark or a port to a row, and the questions about an address that the hooks ask. All searches by mark or port
// give what a walk of the rows 0..23 in index order would, without walking once the rows are filled.
#pragma once

#include "base/byte_order.h"
#include "base/field.h"
#include "captive_portal/reasons.h"

namespace captive_portal
{

// Row 0..23 that carries `mark`. No lock.
[[nodiscard]] Field<uint32_t> find_row_by_mark(uint32_t mark);

// The row in whose name a packet with `mark` is counted: 27 for MARK_MIREL_BLACK, the interface's row, or
// CP_COUNTER_ROW_OTHER for any other mark. No lock.
[[nodiscard]] uint32_t counted_row_of_mark(uint32_t mark);

// Portal mode of the row that carries `mark`, 0 for an unknown mark; row 27's for MARK_MIREL_BLACK. No lock.
[[nodiscard]] uint32_t is_captive_portal_enable(uint32_t mark);

// `block_https` of the row that carries `mark`, 0 for an unknown mark, 1 for MARK_MIREL_BLACK. No lock.
[[nodiscard]] uint32_t is_block_https_enable(uint32_t mark);

// Row whose connections and walled garden a packet with `mark` belongs to: 27 for MARK_MIREL_BLACK, 25 for a row in
// mode 7, else the row itself. An unknown mark gives 0, deliberately no error. No lock.
[[nodiscard]] uint32_t get_iface_by_mark(uint32_t mark);

// Row one of whose two redirect ports is `port` (host order), or -1. No lock.
[[nodiscard]] int32_t get_iface_by_port(uint16_t port);

// False for 192.168.0.0/16, 172.16.0.0/12 and 10.0.0.0/8; nothing else counts as private.
[[nodiscard]] bool is_dst_internet(Ipv4Address address);

// No lock.
[[nodiscard]] bool is_dst_gateway(Ipv4Address address);

// True when `address` is the first IPv4 address of "br0"; false when there is no such device or address. No lock.
[[nodiscard]] bool is_dst_ap(Ipv4Address address);

// The device that carries the access point's own address; also the bridge of a port that has none.
inline constexpr char default_bridge[] = "br0";

// Name of the bridge of the device `ifname`: "br0" when it is no bridge port or its bridge cannot be reached. A device
// that is not there leaves `out` as it is. Each of the three is logged at debug level 3. No lock.
void get_bridge_name_by_iface(const char *ifname, char (&out)[CP_INTERFACE_NAME_SIZE]);

} // namespace captive_portal
