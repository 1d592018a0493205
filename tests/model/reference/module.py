"""The module: what it holds while it is loaded, its start and its stop."""

from .client_tables import ClientTables
from .control_device import BUSY, ControlDevice
from .dns_cache import DnsCache
from .dns_parser import DnsParser
from .garden_rules import Garden
from .gatekeeper import Gatekeeper
from .kernel import DEBUG, DEFAULT
from .portal_table import PortalTable
from .post_routing import PostRoutingRewrite
from .pre_routing import PreRoutingCheck
from .proc_file import ProcFile

DYNAMIC_MINOR = 255


class Module:
    def __init__(self, kernel):
        self.kernel = kernel
        self.debug_level = 1
        self.has_hooks = False
        # The tick at which the expiry thread wakes, None without a thread.
        self.wakes_at = None
        self.proc = None

    def start(self):
        kernel = self.kernel
        kernel.log(DEBUG, "captive_portal_init\n")
        kernel.log(DEBUG, f"[init captive portal] minor:{DYNAMIC_MINOR}, name:CP_dev\n")
        self.has_hooks = kernel.register("hooks") == 0
        if not self.has_hooks:
            kernel.log(DEBUG, "nf_register_hook fail\n")
        error = kernel.register("misc")
        if error != 0:
            kernel.log(
                DEBUG, f"[captive portal] cannot register miscdev on minor={DYNAMIC_MINOR} (err={error})\n"
            )
            kernel.log(DEBUG, "[captive portal] captive_portal_misc_dev failed!!\n")
            return error
        self.clients = ClientTables()
        self.portal = PortalTable()
        self.garden = Garden(self)
        self.cache = DnsCache(self)
        self.parser = DnsParser(self)
        self.gatekeeper = Gatekeeper(self)
        self.pre_routing = PreRoutingCheck(self)
        self.post_routing = PostRoutingRewrite(self)
        self.device = ControlDevice(self)
        self.start_dns()
        return 0

    def start_dns(self):
        kernel = self.kernel
        kernel.log(DEBUG, "dns_parse_init\n")
        if kernel.register("thread") == 0:
            kernel.log(DEFAULT, "wake_up_process schedule_check_thread\n")
            # The pass at once finds nothing and says nothing.
            self.wakes_at = kernel.tick + kernel.PERIOD
        if kernel.register("proc") == 0:
            self.proc = ProcFile(self)

    def run_pass(self):
        self.cache.expire()
        self.wakes_at += self.kernel.PERIOD

    def stop(self):
        kernel = self.kernel
        if self.device.in_use != 0:
            return BUSY
        kernel.log(DEBUG, "captive_portal_exit\n")
        kernel.log(DEBUG, "dns_parse_exit\n")
        if self.wakes_at is not None:
            kernel.log(DEFAULT, "kthread_stop schedule_check_thread\n")
            kernel.log(DEFAULT, "[schedule_check]out of loop\n")
        return 0
