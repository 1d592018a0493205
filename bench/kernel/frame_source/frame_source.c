// SPDX-License-Identifier: GPL-2.0-only
/* Frames at full speed, the time that they take, and empty hooks. For measuring only: its device is root's. */
#include <linux/capability.h>
#include <linux/etherdevice.h>
#include <linux/ktime.h>
#include <linux/miscdevice.h>
#include <linux/mm.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/netdevice.h>
#include <linux/netfilter_bridge.h>
#include <linux/rtnetlink.h>
#include <linux/sched.h>
#include <linux/skbuff.h>
#include <linux/uaccess.h>
#include <net/net_namespace.h>

#include "frame_source.h"

enum { MAXIMAL_BATCHES = 4096, MAXIMAL_FRAMES = 65536, MAXIMAL_FRAME_SIZE = 1500 };

/* One run, or one change of the hooks, at a time. */
static DEFINE_MUTEX(one_user);

static unsigned int accept_at_once(void *record, struct sk_buff *skb, const struct nf_hook_state *state)
{
	return NF_ACCEPT;
}

static struct nf_hook_ops empty_hooks[FRAME_HOOKS] = {
	{.hook = accept_at_once, .pf = NFPROTO_BRIDGE, .hooknum = NF_BR_PRE_ROUTING, .priority = -320},
	{.hook = accept_at_once, .pf = NFPROTO_BRIDGE, .hooknum = NF_BR_PRE_ROUTING, .priority = -310},
	{.hook = accept_at_once, .pf = NFPROTO_BRIDGE, .hooknum = NF_BR_POST_ROUTING, .priority = 80},
};
static unsigned long registered_hooks;

static int set_hooks(unsigned long wanted)
{
	unsigned int i;

	if (wanted >> FRAME_HOOKS)
		return -EINVAL;
	for (i = 0; i < FRAME_HOOKS; i++) {
		const unsigned long bit = 1UL << i;

		if (wanted & ~registered_hooks & bit) {
			const int error = nf_register_net_hook(&init_net, &empty_hooks[i]);

			if (error)
				return error;
		} else if (~wanted & registered_hooks & bit) {
			nf_unregister_net_hook(&init_net, &empty_hooks[i]);
		}
		registered_hooks = (registered_hooks & ~bit) | (wanted & bit);
	}
	synchronize_net();
	return 0;
}

/* Called with bottom halves off, as a driver's receive function is. */
static int pass_one_frame(struct net_device *device, u32 way, const void *bytes, u32 size)
{
	struct sk_buff *skb = netdev_alloc_skb_ip_align(device, size);

	if (!skb)
		return -ENOMEM;
	skb_put_data(skb, bytes, size);
	if (way == FRAME_IS_RECEIVED) {
		skb->protocol = eth_type_trans(skb, device);
		netif_receive_skb(skb);
	} else {
		skb_reset_mac_header(skb);
		skb_set_network_header(skb, ETH_HLEN);
		skb->protocol = eth_hdr(skb)->h_proto;
		dev_queue_xmit(skb);
	}
	return 0;
}

static int pass_frames(struct net_device *device, const struct frame_run *run, const u8 *data, u64 *nanoseconds)
{
	u32 next = 0, batch, i;

	for (batch = 0; batch < run->batches; batch++) {
		int error = 0;
		u64 started;

		local_bh_disable();
		started = ktime_get_ns();
		for (i = 0; i < run->frames_in_batch && !error; i++) {
			error = pass_one_frame(device, run->way, data + (size_t)next * run->frame_size,
					       run->frame_size);
			next = next + 1 < run->frames ? next + 1 : 0;
		}
		nanoseconds[batch] = ktime_get_ns() - started;
		local_bh_enable();
		if (error)
			return error;
		cond_resched();
	}
	return 0;
}

static int run_frames(const struct frame_run __user *record)
{
	struct net_device *device = NULL;
	u64 *nanoseconds = NULL;
	struct frame_run run;
	void *data = NULL;
	int error;

	if (copy_from_user(&run, record, sizeof(run)))
		return -EFAULT;
	run.device[sizeof(run.device) - 1] = '\0';
	if (run.way > FRAME_IS_SENT || !run.frames || run.frames > MAXIMAL_FRAMES || run.batches > MAXIMAL_BATCHES ||
	    run.frame_size < ETH_HLEN || run.frame_size > MAXIMAL_FRAME_SIZE)
		return -EINVAL;

	device = dev_get_by_name(&init_net, run.device);
	if (!device)
		return -ENODEV;
	error = -ENOMEM;
	data = kvmalloc_array(run.frames, run.frame_size, GFP_KERNEL);
	nanoseconds = kvcalloc(run.batches, sizeof(*nanoseconds), GFP_KERNEL);
	if (!data || !nanoseconds)
		goto out;
	error = -EFAULT;
	if (copy_from_user(data, u64_to_user_ptr(run.data), (size_t)run.frames * run.frame_size))
		goto out;
	error = pass_frames(device, &run, data, nanoseconds);
	if (!error &&
	    copy_to_user(u64_to_user_ptr(run.nanoseconds), nanoseconds, (size_t)run.batches * sizeof(*nanoseconds)))
		error = -EFAULT;
out:
	kvfree(nanoseconds);
	kvfree(data);
	dev_put(device);
	return error;
}

/* Guarded by the lock of network devices, under which it is also released. */
static struct net_device *end_device;

static rx_handler_result_t throw_away(struct sk_buff **skb)
{
	consume_skb(*skb);
	return RX_HANDLER_CONSUMED;
}

static int end_at(int index)
{
	struct net_device *device;
	int error = -EBUSY;

	rtnl_lock();
	if (end_device)
		goto out;
	error = -ENODEV;
	device = dev_get_by_index(&init_net, index);
	if (!device)
		goto out;
	error = netdev_rx_handler_register(device, throw_away, NULL);
	if (error)
		dev_put(device);
	else
		end_device = device;
out:
	rtnl_unlock();
	return error;
}

static void end_nowhere(void)
{
	rtnl_lock();
	if (end_device) {
		netdev_rx_handler_unregister(end_device);
		dev_put(end_device);
		end_device = NULL;
	}
	rtnl_unlock();
}

static long frame_source_ioctl(struct file *file, unsigned int command, unsigned long argument)
{
	long result = -ENOTTY;

	if (!capable(CAP_NET_ADMIN))
		return -EPERM;
	mutex_lock(&one_user);
	if (command == FRAME_RUN_FRAMES)
		result = run_frames((const struct frame_run __user *)argument);
	else if (command == FRAME_SET_HOOKS)
		result = set_hooks(argument);
	else if (command == FRAME_END_AT)
		result = end_at(argument);
	mutex_unlock(&one_user);
	return result;
}

static const struct file_operations frame_source_operations = {
	.owner = THIS_MODULE,
	.unlocked_ioctl = frame_source_ioctl,
};

static struct miscdevice frame_source_device = {
	.minor = MISC_DYNAMIC_MINOR,
	.name = "frame_source",
	.fops = &frame_source_operations,
	.mode = 0600,
};

static int __init frame_source_init(void)
{
	return misc_register(&frame_source_device);
}

static void __exit frame_source_exit(void)
{
	misc_deregister(&frame_source_device);
	end_nowhere();
	set_hooks(0);
}

module_init(frame_source_init);
module_exit(frame_source_exit);
MODULE_DESCRIPTION("Frames at full speed for measurements of packet hooks");
MODULE_LICENSE("GPL");
