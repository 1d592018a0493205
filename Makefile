# SPDX-License-Identifier: GPL-2.0-only
# Builds captive_portal.ko in this directory for the running kernel, or for the kernel whose build tree KDIR names.
# What a kernel's own build takes (ARCH=, CROSS_COMPILE=, V=1) goes through.

KDIR ?= /lib/modules/$(shell uname -r)/build

modules modules_install clean:
	$(MAKE) -C $(KDIR) M=$(CURDIR) $@

# The module that was built holds nothing that a kernel would not run or resolve.
check: modules
	platform/linux/check-module.sh captive_portal.ko

.PHONY: modules modules_install clean check
