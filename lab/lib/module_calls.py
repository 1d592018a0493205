"""Loads and unloads a module by the system calls themselves, so that no start of a program is in what is measured.

usage: module_calls.py MODULE   reads "load" or "unload" from standard input, again and again, and answers each with the
microseconds that the call took, or with its error
"""

import os
import sys
import time

from system_calls import load_module, unload_module


def main(module):
    for word in sys.stdin:
        file = os.open(module, os.O_RDONLY)
        call = {"load": lambda: load_module(file), "unload": unload_module}[word.strip()]
        start = time.monotonic_ns()
        try:
            call()
            answer = (time.monotonic_ns() - start) // 1000
        except OSError as error:
            answer = error.strerror
        os.close(file)
        print(answer, flush=True)


main(sys.argv[1])
