"""A second account of the captive portal, written for being read: what every command, frame and answer does.

It shares nothing with the module but what both are meant to do. `Machine().run(steps)` plays one sequence; the steps and
their results are described in ../protocol.md.
"""

from .machine import Machine

__all__ = ["Machine"]
