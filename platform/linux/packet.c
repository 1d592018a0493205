// SPDX-License-Identifier: GPL-2.0-only
/* The core's calls that take a packet: the kernel's own buffer. */
#include "platform/linux/glue.h"

#include <linux/errno.h>
#include <linux/if_packet.h>
#include <linux/kernel.h>
#include <linux/netdevice.h>
#include <linux/netfilter.h>
#include <linux/skbuff.h>
#include <linux/string.h>
#include <net/checksum.h>

#include "platform/linux/test_knobs.h"

TEST_KNOB(fail_pulls)
TEST_KNOB(fail_writable)

static struct sk_buff *buffer_of(struct cp_packet *packet)
{
	return (struct sk_buff *)packet;
}

void pull_headers(struct sk_buff *skb)
{
	/*
	 * How many bytes may be pulled. A large packet that GRO made may hold its later segments as a list of buffers, and
	 * segmenting it again wants the first buffer to be exactly the first segment. A byte pulled over from the list makes
	 * late kernels of the range copy the packet whole, and earlier ones do not expect it at all. All headers lie in the
	 * first buffer, so the pull ends there.
	 */
	unsigned int available = skb->len;

	if (skb_is_gso(skb) && skb_has_frag_list(skb))
		available = skb_pagelen(skb);
	/*
	 * Without memory the core judges by what is linear already; fields outside are missing to it. The bridge never
	 * hands out a buffer that somebody else holds a reference to; should one come all the same, its data cannot be
	 * moved, and trying to is a BUG().
	 */
	if (!skb_shared(skb) && fail_pulls_ordered() < 0)
		(void)pskb_may_pull(skb, min_t(unsigned int, available, CP_PACKET_HEADER_BYTES));
}

int cp_packet_copy(const struct cp_packet *packet, uint32_t offset, void *to, uint32_t bytes)
{
	const struct sk_buff *skb = (const struct sk_buff *)packet;

	/* The kernel's call takes signed numbers; a packet is never that long. */
	if (offset > skb->len || bytes > skb->len - offset)
		return -EFAULT;
	return skb_copy_bits(skb, offset, to, bytes);
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
	struct sk_buff *skb = buffer_of(packet);
	int error;

	if (fail_writable_ordered() == 0)
		return -ENOMEM;
	error = skb_shared(skb) ? -EBUSY : skb_ensure_writable(skb, bytes);
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
	struct sk_buff *skb = buffer_of(packet);
	__sum16 checksum;

	memcpy(&checksum, skb->data + offset, sizeof(checksum));
	inet_proto_csum_replace4(&checksum, skb, (__force __be32)from, (__force __be32)to,
				 part == CP_CHECKSUM_PSEUDO_HEADER);
	memcpy(skb->data + offset, &checksum, sizeof(checksum));
}

void cp_packet_set_host(struct cp_packet *packet)
{
	struct sk_buff *skb = buffer_of(packet);

	skb->pkt_type = PACKET_HOST;
}
