// SPDX-License-Identifier: GPL-2.0-only
/* Registration of the packet hooks, and the one function that the kernel calls for all of them. */
#include "platform/linux/glue.h"

#include <linux/errno.h>
#include <linux/kernel.h>
#include <linux/netfilter.h>
#include <linux/skbuff.h>
#include <net/net_namespace.h>

#include "platform/linux/compat/bridge_hooks.h"

enum { MAXIMAL_HOOKS = 3 };

/* The kernel keeps the addresses of these until they are unregistered. */
static struct nf_hook_ops operations[MAXIMAL_HOOKS];
/* How many of them are registered. Start and stop run alone, so no lock. */
static unsigned int registered;

/* Whether headers may lie outside the linear part. */
static __always_inline bool may_need_pull(const struct sk_buff *skb)
{
	return skb_is_nonlinear(skb) && skb_headlen(skb) < CP_PACKET_HEADER_BYTES;
}

/*
 * What the kernel calls, one function for each of the core's hooks: a call through a pointer costs where kernels guard such
 * calls. They run in softirq context, or in process context for frames that a process injects through a tap device.
 */
#define DEFINE_ENTRY(name, hook)                                                                                       \
	static notrace unsigned int name(void *unused, struct sk_buff *skb, const struct nf_hook_state *state)         \
	{                                                                                                              \
		if (unlikely(may_need_pull(skb)))                                                                      \
			pull_headers(skb);                                                                             \
		return hook((struct cp_packet *)skb, (const struct cp_ports *)state);                                  \
	}
DEFINE_ENTRY(enter_gate_keeper, ebt_gate_keeper)
DEFINE_ENTRY(enter_check, nf_cp_check)
DEFINE_ENTRY(enter_change, nf_cp_change)

static const struct {
	enum cp_verdict (*hook)(struct cp_packet *packet, const struct cp_ports *ports);
	nf_hookfn *entry;
} entries[] = {
	{ebt_gate_keeper, enter_gate_keeper},
	{nf_cp_check, enter_check},
	{nf_cp_change, enter_change},
};

static nf_hookfn *entry_of(const struct cp_hook *hook)
{
	size_t i;

	for (i = 0; i < ARRAY_SIZE(entries); i++) {
		if (entries[i].hook == hook->function)
			return entries[i].entry;
	}
	return NULL;
}

int cp_register_hooks(const struct cp_hook *hooks, uint32_t count)
{
	unsigned int i;
	int error;

	BUILD_BUG_ON(CP_DROP != NF_DROP || CP_ACCEPT != NF_ACCEPT);
	if (count > MAXIMAL_HOOKS)
		return -EINVAL;
	for (i = 0; i < count; i++) {
		operations[i] = (struct nf_hook_ops){
			.hook = entry_of(&hooks[i]),
			.pf = hooks[i].protocol_family,
			.hooknum = hooks[i].hook_number,
			.priority = hooks[i].priority,
		};
		if (!operations[i].hook)
			return -EINVAL;
	}
	error = nf_register_net_hooks(&init_net, operations, count);
	if (error)
		/* The first of them may have been registered, and run yet: a load that fails frees what it counts in. */
		synchronize_net();
	else
		registered = count;
	return error;
}

void take_hooks_off(void)
{
	if (!registered)
		return;
	nf_unregister_net_hooks(&init_net, operations, registered);
	registered = 0;
	/* From 4.14 on the call above only unlinks. Hooks run inside RCU read sections: this waits for the last one. */
	synchronize_net();
}

void cp_unregister_hooks(const struct cp_hook *hooks, uint32_t count)
{
	take_hooks_off();
}
