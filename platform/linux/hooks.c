// SPDX-License-Identifier: GPL-2.0-only
/* Registration of the packet hooks, and the one function that the kernel calls for all of them. */
#include "platform/linux/glue.h"

#include <linux/errno.h>
#include <linux/kernel.h>
#include <linux/netdevice.h>
#include <linux/skbuff.h>
#include <net/net_namespace.h>

#include "platform/linux/compat/bridge_hooks.h"

enum { MAXIMAL_HOOKS = 3 };

/* The kernel keeps the addresses of these until they are unregistered. */
static struct nf_hook_ops operations[MAXIMAL_HOOKS];
/* How many of them are registered. Start and stop run alone, so no lock. */
static unsigned int registered;

/* Runs in softirq context, or in process context for frames that a process injects through a tap device. */
static unsigned int run_hook(void *record, struct sk_buff *skb, const struct nf_hook_state *state)
{
	const struct cp_hook *hook = record;
	struct cp_packet packet;
	enum cp_verdict verdict;

	open_packet_view(&packet, skb, state);
	verdict = hook->function(&packet);
	skb->mark = packet.mark;
	return verdict == CP_DROP ? NF_DROP : NF_ACCEPT;
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
			.hook = run_hook,
			.priv = (void *)&hooks[i],
			.pf = hooks[i].protocol_family,
			.hooknum = hooks[i].hook_number,
			.priority = hooks[i].priority,
		};
	}
	error = nf_register_net_hooks(&init_net, operations, count);
	if (!error)
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
