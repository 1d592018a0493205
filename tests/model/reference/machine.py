"""Plays a sequence: one machine from its start, one result for each step."""

from .kernel import CallerMemory, Device, Kernel
from .module import Module
from .packet import ACCEPT, Packet

NO_PROC_FILE = -5


class Machine:
    def __init__(self, kernel=None):
        self.kernel = kernel or Kernel()
        # None before a load that succeeded and after an unload.
        self.module = None

    def run(self, steps):
        results = []
        for step in steps:
            lines = self.kernel.lines = []
            result = self.STEPS[step["op"]](self, step)
            result["log"] = lines
            results.append(result)
        return results

    def device(self, step):
        self.kernel.devices[step["name"]] = Device(step)
        return {}

    def remove_device(self, step):
        self.kernel.devices.pop(step["name"], None)
        return {}

    def clock(self, step):
        self.kernel.seconds += step["seconds"]
        return {}

    def ticks(self, step):
        end = self.kernel.tick + step["ticks"]
        module = self.module
        while module is not None and module.wakes_at is not None and module.wakes_at <= end:
            self.kernel.tick = module.wakes_at
            module.run_pass()
        self.kernel.tick = end
        return {}

    def fail_allocation(self, step):
        self.kernel.allocations_to_failure = step["number"]
        return {}

    def memory(self, step):
        self.kernel.memory_full = step["full"]
        return {}

    def fail_registration(self, step):
        # A thread that cannot be had comes without an error.
        self.kernel.failing_registrations[step["what"]] = step.get("error", -1)
        return {}

    def load(self, _step):
        module = Module(self.kernel)
        result = module.start()
        if result == 0:
            self.module = module
        return {"result": result}

    def unload(self, _step):
        result = self.module.stop()
        if result == 0:
            self.module = None
        return {"result": result}

    def open(self, _step):
        return {"result": self.module.device.open()}

    def release(self, _step):
        return {"result": self.module.device.release()}

    def ioctl(self, step):
        device = self.module.device
        handler = device.compat_ioctl if step.get("compat") else device.ioctl
        if "record" not in step:
            # A bare number is no address at which anything lies.
            return {"result": handler(step["command"], step["argument"], CallerMemory(b"", step))}
        memory = CallerMemory(bytes.fromhex(step["record"]), step)
        result = handler(step["command"], 0, memory)
        return {"result": result, "record": memory.data.hex()}

    def pre(self, step):
        module = self.module
        packet = Packet(step)
        verdict = module.gatekeeper.hook(packet) if module.has_hooks else ACCEPT
        if verdict == ACCEPT:
            # The machine's own firewall runs between the two hooks.
            if step.get("firewall_mark") is not None:
                packet.mark = step["firewall_mark"]
            if module.has_hooks:
                verdict = module.pre_routing.hook(packet)
        return self.seen(packet, verdict)

    def post(self, step):
        packet = Packet(step)
        if self.module.has_hooks:
            self.module.post_routing.hook(packet)
        return self.seen(packet, ACCEPT)

    def seen(self, packet, verdict):
        return {"verdict": verdict, "mark": packet.mark, "type": packet.kind, "frame": packet.frame.hex()}

    def proc_write(self, step):
        if self.module.proc is None:
            return {"result": NO_PROC_FILE}
        text = bytes.fromhex(step["text"])
        memory = CallerMemory(text, step)
        return {"result": self.module.proc.write(memory, len(text))}

    def proc_read(self, step):
        length = step["length"]
        position = step.get("position", 0)
        memory = CallerMemory(bytes(length), step)
        result = NO_PROC_FILE
        if self.module.proc is not None:
            result, data = self.module.proc.read(length, position)
            # What the reader's pages do not take is lost.
            memory.write(data)
        if result > 0:
            position = result
        return {"result": result, "position": position, "bytes": memory.data.hex()}

    STEPS = {
        "device": device,
        "remove_device": remove_device,
        "clock": clock,
        "ticks": ticks,
        "fail_allocation": fail_allocation,
        "memory": memory,
        "fail_registration": fail_registration,
        "load": load,
        "unload": unload,
        "open": open,
        "release": release,
        "ioctl": ioctl,
        "pre": pre,
        "post": post,
        "proc_write": proc_write,
        "proc_read": proc_read,
    }
