# What no kernel may say in a run.  Sourced by the guest, which blames a case,
# and by the host, which reads the whole log and the console once more.
#
#   kernel_complaints <LOG     prints the lines that are complaints
#   without_ordered_failures <LOG   the log without the kernel's reports of allocations that a
#                              case made fail on purpose

# Lost memory is not among them: the guest reads the leak detector's own report, and knows what is kept on purpose.
complaints='WARNING:|BUG:|BUG |Oops|kernel BUG|KASAN|UBSAN|KCSAN|KFENCE|ODEBUG|general protection|Kernel panic'
complaints+='|unable to handle|divide error|invalid opcode|Call Trace|cut here|stack-protector|stack guard page'
complaints+='|circular locking|possible recursive locking|inconsistent lock|irq lock inversion|bad unlock balance'
complaints+='|held lock freed|suspicious RCU usage|Invalid wait context|detected stall|self-detected|rcu_.*stall'
complaints+='|soft lockup|hard LOCKUP|blocked for more than|scheduling while atomic|sleeping function called'
complaints+='|list_(add|del) corruption|refcount_t|use-after-free|double free|Bad page state|Objects remaining'
complaints+='|leaked reference|unregister_netdevice: waiting|not on list'
complaints+='|Unknown symbol|[Ss]lab corruption|Redzone|Poison overwritten|Memory manipulation|FAULT_INJECTION'

# Lines that are none: QEMU's widest processor has no answer to some
# speculation faults, and the kernel says so once at boot.
harmless='RCU callback double-/use-after-free debug is enabled|Spectre|RETBleed|Vulnerable|MDS:|TAA:|ITS:|mitigation'

# The RCU reports that are the kernel's own: User Mode Linux walks a process's
# memory areas without a lock after a fork (lib/maple_tree.c in the report's
# head, force_flush_all in its trace).  A report without both is not touched.
without_known_reports() {
	awk '
		function flush() {
			if (!(report ~ /lib\/maple_tree\.c:[0-9]+ suspicious/ && report ~ /force_flush_all/)) printf "%s", report
			report = ""
			inside = traced = 0
		}
		inside && traced && !/\[<[0-9a-f]+>\]/ { flush() }
		/WARNING: suspicious RCU usage/ { flush(); inside = 1 }
		inside { report = report $0 "\n"; if (/Call Trace:/) traced = 1; next }
		{ print }
		END { flush() }
	'
}

# The kernel reports a failed allocation of its own with a trace, also one that was ordered.  The module asks for no such
# report, so one with the module in its trace is not touched.
without_ordered_failures() {
	awk '
		function flush() {
			if (report ~ /\[captive_portal\]/) printf "%s", report
			report = ""
			inside = traced = 0
		}
		inside && traced && !/\[<[0-9a-f]+>\]/ { flush() }
		/ python3: (vmalloc error: .*failed, mode|page allocation failure: )/ { flush(); inside = 1 }
		inside { report = report $0 "\n"; if (/Call Trace:/) traced = 1; next }
		{ print }
		END { flush() }
	'
}

kernel_complaints() { without_known_reports | grep -aE -- "$complaints" | grep -avE -- "$harmless" || true; }
