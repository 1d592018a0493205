/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * What the measuring module offers to its one user, through ioctl on /dev/frame_source.
 *
 * RUN_FRAMES sends frames through the kernel as fast as it goes, in batches, and tells how long each batch took: from
 * a socket buffer's making to its end, wherever the frame's way ends. SET_HOOKS puts empty hooks where
 * captive_portal has its own, so that the cost of being called can be told from the cost of what is done. END_AT makes
 * a device throw away what it receives, after whoever captures there has seen it, and before any protocol does.
 */
#ifndef FRAME_SOURCE_H
#define FRAME_SOURCE_H

#include <linux/ioctl.h>
#include <linux/types.h>

enum frame_way {
	/* As if the device had received the frame. */
	FRAME_IS_RECEIVED = 0,
	/* As if a local program had sent the frame by the device. */
	FRAME_IS_SENT = 1,
};

struct frame_run {
	char device[16];
	__u32 way; /* enum frame_way */
	__u32 batches;
	__u32 frames_in_batch;
	/* How many different frames there are; they take turns, through all batches. */
	__u32 frames;
	__u32 frame_size; /* of each, in bytes */
	__u32 reserved;
	__u64 data;        /* address of frames * frame_size bytes */
	__u64 nanoseconds; /* address of a __u64 for each batch */
};

/* Bits of SET_HOOKS' argument: bridge pre-routing at -320 and -310, bridge post-routing at 80. */
enum { FRAME_HOOKS = 3 };

#define FRAME_RUN_FRAMES _IOW('F', 1, struct frame_run)
#define FRAME_SET_HOOKS _IO('F', 2)
/* The argument is the device's number. Once for each time that the module is loaded. */
#define FRAME_END_AT _IO('F', 3)

#endif
