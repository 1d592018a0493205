// SPDX-License-Identifier: GPL-2.0-only
/*
 * A bridged frame as the core sees it.
 *
 * What follows the Ethernet header is taken from skb->data, not from the recorded network header: the bridge keeps
 * skb->data there at both hook points, while a frame that a packet socket sends into the bridge device may carry any
 * network header. The buffer control block (skb->cb) belongs to the bridge here and is not touched.
 */
#include "platform/linux/glue.h"

#include <linux/errno.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <linux/kernel.h>
#include <linux/netdevice.h>
#include <linux/netfilter.h>
#include <linux/skbuff.h>
#include <linux/string.h>
#include <net/checksum.h>

/*
 * How many bytes may be pulled into the linear part. A large packet that GRO made may hold its later segments as a list
 * of buffers, and segmenting it again wants the first buffer to be exactly the first segment. A byte pulled over from
 * the list makes late kernels of the range copy the packet whole, and earlier ones do not expect it at all. All headers
 * lie in the first buffer, so the pull ends there.
 */
static unsigned int bytes_to_pull(const struct sk_buff *skb)
{
	unsigned int available = skb->len;

	if (skb_is_gso(skb) && skb_has_frag_list(skb))
		available = skb_pagelen(skb);
	return min_t(unsigned int, available, CP_PACKET_HEADER_BYTES);
}

static void point_at_headers(struct cp_packet *packet, const struct sk_buff *skb)
{
	packet->network = skb->data;
	packet->network_bytes = skb_headlen(skb);
	/* A frame whose Ethernet header is not where the bridge puts it has none that the core may read. */
	if (skb_mac_header_was_set(skb) && skb_mac_header(skb) + ETH_HLEN == skb->data) {
		packet->ethernet = skb_mac_header(skb);
		packet->ethernet_bytes = ETH_HLEN;
	} else {
		packet->ethernet = NULL;
		packet->ethernet_bytes = 0;
	}
}

void open_packet_view(struct cp_packet *packet, struct sk_buff *skb, const struct nf_hook_state *state)
{
	/*
	 * Without memory the core judges by what is linear already; fields outside are missing to it. The bridge never
	 * hands out a buffer that somebody else holds a reference to; should one come all the same, its data cannot be
	 * moved, and trying to is a BUG().
	 */
	if (!skb_shared(skb))
		(void)pskb_may_pull(skb, bytes_to_pull(skb));
	point_at_headers(packet, skb);
	packet->mark = skb->mark;
	packet->in_name = state->in ? state->in->name : NULL;
	packet->out_name = state->out ? state->out->name : NULL;
	packet->buffer = skb;
}

/*
 * skb_ensure_writable() speaks of bytes from skb->data on, and the Ethernet header lies before. It is covered all the
 * same, in each of the three ways in which the call succeeds:
 * - the data is not shared at all: nobody else sees any byte of the buffer;
 * - the data is shared but the header is not (a TCP segment and its copy for retransmission): the call compares the
 *   whole way from the start of the buffer, head room included, with the private part;
 * - anything else gets a new buffer, and pskb_expand_head() copies the head room too.
 */
int cp_packet_make_writable(struct cp_packet *packet, uint32_t bytes)
{
	struct sk_buff *skb = packet->buffer;
	int error = skb_shared(skb) ? -EBUSY : skb_ensure_writable(skb, bytes);

	point_at_headers(packet, skb);
	if (error)
		return error;
	/*
	 * A sum over the whole packet by the device holds the old header. It could be corrected for the address, but not
	 * for an IPv4 header checksum that was wrong on arrival and is right after the rewrite; the stack would take
	 * the difference for a hardware fault and say so with a stack trace. Without the sum it adds up by itself.
	 */
	if (skb->ip_summed == CHECKSUM_COMPLETE)
		skb->ip_summed = CHECKSUM_NONE;
	return 0;
}

void cp_packet_replace_checksum(struct cp_packet *packet, uint32_t offset, uint32_t from, uint32_t to,
				enum cp_checksum_part part)
{
	struct sk_buff *skb = packet->buffer;
	__sum16 checksum;

	memcpy(&checksum, skb->data + offset, sizeof(checksum));
	inet_proto_csum_replace4(&checksum, skb, (__force __be32)from, (__force __be32)to,
				 part == CP_CHECKSUM_PSEUDO_HEADER);
	memcpy(skb->data + offset, &checksum, sizeof(checksum));
}

void cp_packet_set_host(struct cp_packet *packet)
{
	struct sk_buff *skb = packet->buffer;

	skb->pkt_type = PACKET_HOST;
}
