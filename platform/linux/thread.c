// SPDX-License-Identifier: GPL-2.0-only
/* Threads of the module, and processor time. */
#include "platform/linux/glue.h"

#include <linux/err.h>
#include <linux/kthread.h>
#include <linux/sched.h>

/* The seam's handle of a thread is its task. */
static struct task_struct *task_of(struct cp_thread *thread)
{
	return (struct task_struct *)thread;
}

static int run_body(void *body)
{
	return ((int (*)(void))body)();
}

struct cp_thread *cp_thread_create(int (*body)(void), const char *name)
{
	struct task_struct *task = kthread_create(run_body, (void *)body, "%s", name);

	/* An error handle stays in this file: it counts as no thread, and nobody starts or stops it. */
	return IS_ERR(task) ? NULL : (struct cp_thread *)task;
}

void cp_thread_wake_up(struct cp_thread *thread)
{
	wake_up_process(task_of(thread));
}

void cp_thread_stop(struct cp_thread *thread)
{
	/* A thread that has not run yet ends without its body. */
	kthread_stop(task_of(thread));
}

int cp_thread_should_stop(void)
{
	return kthread_should_stop();
}

void cp_thread_sleep(uint32_t ticks)
{
	/*
	 * The state is set before the question: a stop that comes between the question and the sleep sets it back, and
	 * the sleep ends at once. Interruptible, so that neither the load average nor the watch for hung tasks counts
	 * the sleeper.
	 */
	set_current_state(TASK_INTERRUPTIBLE);
	if (!kthread_should_stop())
		schedule_timeout(ticks);
	__set_current_state(TASK_RUNNING);
}

void cp_yield_processor(void)
{
	cond_resched();
}
