"""The walled garden's rules and the matcher that asks them for an address or a domain."""

import re

from .kernel import DEBUG
from .portal_table import ROW_OF_MARK

ROWS = 28
# Host names that are never part of a walled garden.
EXCEPTION = "social-login.example.com"

WILDCARD = re.compile("[*?]")


class Rule:
    __slots__ = ("kind", "address", "netmask", "domain")

    def __init__(self, kind, address, netmask, domain):
        self.kind = kind
        self.address = address
        self.netmask = netmask
        self.domain = domain


class GardenRow:
    __slots__ = ("enable_value", "rules")

    def __init__(self):
        self.enable_value = 0
        self.rules = []


class Garden:
    def __init__(self, module):
        self.module = module
        self.kernel = module.kernel
        self.rows = [GardenRow() for _ in range(ROWS)]
        self.default_rules = []

    def is_enabled(self, mark):
        """Asked only for a mark whose portal is on."""
        return self.rows[ROW_OF_MARK[mark]].enable_value != 0

    def match_address(self, address, index):
        """The social-login address is never asked for: the check has dealt with it before."""
        if address == 0:
            if self.module.debug_level >= 1:
                self.kernel.log(DEBUG, "Wrong type(0) and input\n")
            return False
        for rule in self.rows[index].rules:
            if rule.kind != 0 and address & rule.netmask == rule.address & rule.netmask:
                return True
        return False

    def match_domain(self, domain, index):
        if domain == EXCEPTION:
            return False
        # An empty slot is unused: it does not match the empty name.
        if domain != "" and domain in self.default_rules:
            if self.module.debug_level > 2:
                self.kernel.log(DEBUG, "http_match: match default rule\n")
            return True
        for rule in self.rows[index].rules:
            if self.match_pattern(rule.domain, domain):
                return True
        return False

    def match_pattern(self, pattern, domain):
        """'*' and '?' both stand for any run of characters, none included."""
        if WILDCARD.search(pattern) is None:
            return pattern == domain
        if len(pattern) == 1:
            return True
        # The pattern is taken apart in a copy; without one the rule does not match.
        if not self.kernel.allocate():
            return False
        cursor = 0
        anchored = True
        for piece in WILDCARD.split(pattern):
            if piece != "":
                found = domain.find(piece, cursor)
                if found < 0:
                    return False
                if anchored and found != cursor:
                    return False
                # Deliberate: the left-most place is final, a later one is never tried.
                cursor = found + len(piece)
            anchored = False
        if pattern[-1] in "*?" or cursor == len(domain):
            return True
        if self.module.debug_level > 2:
            rest = len(domain) - cursor
            self.kernel.log(DEBUG, f"wildcard case : isLastCharWC=[0], strlen(url_src_ptr)=[{rest}]\n")
        return False
