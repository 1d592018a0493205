# Expected verdict: fail, with the text: it never ran, or never ended
busybox poweroff -f
