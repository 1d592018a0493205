// SPDX-License-Identifier: GPL-2.0-only
/*
 * Where the kernel's structures have the fields that the core reads. Never linked: the build takes the numbers from the
 * compiler's output and makes packet_layout.h of them.
 */
#include <linux/if_ether.h>
#include <linux/kernel.h>
#include <linux/netdevice.h>
#include <linux/netfilter.h>
#include <linux/skbuff.h>

#define LAYOUT(name, number) asm volatile("\n.ascii \"=#define " #name " %c0=\"" : : "i"(number))
#define FIELD(name, type, field, kind)                                                                                 \
	BUILD_BUG_ON(!__builtin_types_compatible_p(typeof(((type *)0)->field), kind));                                 \
	LAYOUT(name, offsetof(type, field))

void packet_layout(void);
void packet_layout(void)
{
	FIELD(CP_SKB_DATA, struct sk_buff, data, unsigned char *);
	FIELD(CP_SKB_HEAD, struct sk_buff, head, unsigned char *);
	FIELD(CP_SKB_LEN, struct sk_buff, len, unsigned int);
	FIELD(CP_SKB_DATA_LEN, struct sk_buff, data_len, unsigned int);
	FIELD(CP_SKB_MAC_HEADER, struct sk_buff, mac_header, __u16);
	FIELD(CP_SKB_MARK, struct sk_buff, mark, __u32);
	FIELD(CP_STATE_IN, struct nf_hook_state, in, struct net_device *);
	FIELD(CP_STATE_OUT, struct nf_hook_state, out, struct net_device *);
	FIELD(CP_NET_DEVICE_NAME, struct net_device, name, char[IFNAMSIZ]);
	LAYOUT(CP_ETHERNET_HEADER_BYTES, ETH_HLEN);
}
