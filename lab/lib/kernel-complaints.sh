# What no kernel may say in a run.  Sourced by the guest, which blames a case,
# and by the host, which reads the whole log and the console once more.
#
#   kernel_complaints <LOG     prints the lines that are complaints

complaints='WARNING:|BUG:|BUG |Oops|kernel BUG|KASAN|UBSAN|KCSAN|KFENCE|ODEBUG|general protection|Kernel panic'
complaints+='|unable to handle|divide error|invalid opcode|Call Trace|cut here|stack-protector|stack guard page'
complaints+='|circular locking|possible recursive locking|inconsistent lock|irq lock inversion|bad unlock balance'
complaints+='|held lock freed|suspicious RCU usage|Invalid wait context|detected stall|self-detected|rcu_.*stall'
complaints+='|soft lockup|hard LOCKUP|blocked for more than|scheduling while atomic|sleeping function called'
complaints+='|list_(add|del) corruption|refcount_t|use-after-free|double free|Bad page state|Objects remaining'
complaints+='|kmemleak: [1-9]|unreferenced object|leaked reference|unregister_netdevice: waiting|not on list'
complaints+='|Unknown symbol|[Ss]lab corruption|Redzone|Poison overwritten|Memory manipulation|FAULT_INJECTION'

# Lines that are none, each with its reason.
#  - QEMU's widest processor has no answer to some speculation faults, and the
#    kernel says so once at boot.
#  - User Mode Linux at boot: its first fork is older than the RCU reader that
#    the lock proof expects.
harmless='Spectre|RETBleed|Vulnerable|MDS:|TAA:|ITS:|mitigation'

kernel_complaints() { grep -aE -- "$complaints" | grep -avE -- "$harmless" || true; }
