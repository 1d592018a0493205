# SPDX-License-Identifier: GPL-2.0-only
"""Starts the servers, asks them, writes their answers. For collect, which makes the namespaces that this needs."""

import base64
import os
import re
import socket
import struct
import subprocess
import sys
import time

import questions
import zones

SERVERS = {"bind": "127.0.0.1", "bind-uncompressed": "127.0.0.2", "unbound": "127.0.0.3", "dnsmasq": "127.0.0.4"}

BIND = """
options {{
    directory "/var/cache/bind";
    listen-on {{ {bind}; {uncompressed}; }};
    listen-on-v6 {{ none; }};
    recursion no;
    notify no;
    max-records-per-type 0;
    check-names primary ignore;
    edns-udp-size 4096;
    max-udp-size 4096;
    nocookie-udp-size 4096;
    dnssec-validation no;
    server-id "corpus";
    version "corpus";
}};
controls {{ }};
view "compressed" {{
    match-destinations {{ {bind}; }};
    minimal-responses no;
    {zones}
}};
view "uncompressed" {{
    match-destinations {{ {uncompressed}; }};
    minimal-responses yes;
    message-compression no;
    {zones}
}};
"""

UNBOUND = """
server:
    interface: {unbound}
    do-daemonize: no
    use-syslog: no
    logfile: ""
    chroot: ""
    username: ""
    pidfile: ""
    directory: "/etc/unbound"
    module-config: "iterator"
    do-not-query-localhost: no
    edns-buffer-size: 4096
    max-udp-size: 4096
    minimal-responses: no
    {data}
stub-zone:
    name: "example."
    stub-addr: {bind}
stub-zone:
    name: "else.test."
    stub-addr: {bind}
stub-zone:
    name: "signed.test."
    stub-addr: {bind}
# Nobody listens there.
stub-zone:
    name: "dead.test."
    stub-addr: 127.0.0.9
"""

DNSMASQ = [
    "dnsmasq", "--no-daemon", "--conf-file=/dev/null", "--no-resolv", "--no-hosts", "--user=root", "--pid-file=",
    f"--listen-address={SERVERS['dnsmasq']}", "--bind-interfaces", "--local-ttl=300", "--edns-packet-max=4096",
    "--addn-hosts=/etc/unbound/hosts", *(f"--server=/{zone}/{SERVERS['bind']}" for zone in zones.ZONES),
    *zones.DNSMASQ_DATA,
]


def run(*command, **more):
    return subprocess.run(command, check=True, **more)


def write(path, text):
    with open(path, "w") as file:
        file.write(text)


def prepare():
    """Places that the servers may read wherever a system confines them; gone with the namespace."""
    run("ip", "link", "set", "lo", "up")
    # Named listens to addresses of devices only.
    run("ip", "address", "add", SERVERS["bind-uncompressed"], "dev", "lo")
    for place in ("/etc/bind", "/var/cache/bind", "/run", "/etc/unbound"):
        run("mount", "-t", "tmpfs", "tmpfs", place)
    os.mkdir("/run/named")
    for name, lines in zones.ZONES.items():
        write(f"/etc/bind/{name}", "\n".join([f"$ORIGIN {name}.", *lines(), ""]))
    for role in ([], ["-f", "KSK"]):
        run("dnssec-keygen", "-q", "-a", "ECDSAP256SHA256", *role, "signed.test", cwd="/etc/bind",
            stdout=subprocess.DEVNULL)
    run("dnssec-signzone", "-q", "-S", "-o", "signed.test", "-f", "signed.test.signed", "signed.test", cwd="/etc/bind",
        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    os.replace("/etc/bind/signed.test.signed", "/etc/bind/signed.test")
    clauses = " ".join(f'zone "{name}" {{ type primary; file "/etc/bind/{name}"; }};' for name in zones.ZONES)
    places = {"bind": SERVERS["bind"], "uncompressed": SERVERS["bind-uncompressed"], "unbound": SERVERS["unbound"]}
    write("/etc/bind/named.conf", BIND.format(zones=clauses, **places))
    write("/etc/unbound/unbound.conf", UNBOUND.format(data="\n    ".join(zones.UNBOUND_DATA), **places))
    write("/etc/unbound/hosts", "\n".join([*zones.DNSMASQ_HOSTS, ""]))
    run("named-checkconf", "-z", "/etc/bind/named.conf", stdout=subprocess.DEVNULL)


def wire_name(name):
    """The name's encoding; a backslash and three digits are a byte, a backslash and a character that character."""
    wire = b""
    for label in re.findall(r"(?:\\\d{3}|\\.|[^.\\])+", name):
        text = re.sub(r"\\(\d{3}|.)", lambda found: chr(int(found[1])) if len(found[1]) == 3 else found[1], label)
        wire += bytes([len(text)]) + text.encode("latin-1")
    return wire + b"\0"


def message(identifier, question):
    flags = question.opcode << 11 | (0x0100 if question.recursion else 0)
    additional = (1 if question.size else 0) + question.signed
    wire = struct.pack(">HHHHHH", identifier, flags, 1, 0, 0, additional)
    wire += wire_name(question.name) + struct.pack(">HH", questions.TYPES[question.type], question.dns_class)
    if question.size:
        extended = question.version << 16 | (0x8000 if question.dnssec else 0)
        wire += b"\0" + struct.pack(">HHIH", 41, question.size, extended, len(question.options)) + question.options
    if question.signed:
        signature = wire_name("hmac-sha256") + struct.pack(">HIHH32xHHH", 0, int(time.time()), 300, 32, identifier, 0, 0)
        wire += wire_name("nobody") + struct.pack(">HHIH", 250, 255, 0, len(signature)) + signature
    return wire


def ask(identifier, question):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as client:
        client.settimeout(15)
        client.connect((SERVERS[question.server], 53))
        client.send(message(identifier, question))
        answer = client.recv(65535)
    assert answer[:2] == struct.pack(">H", identifier)
    return answer


def wait_for(server):
    """Until it has loaded its zones: before, it fails."""
    for _ in range(100):
        try:
            if ask(1, questions.Question(server, "mixed.example"))[3] & 15 == 0:
                return
        except ConnectionRefusedError:
            pass
        time.sleep(0.1)
    raise SystemExit(f"{server} does not answer")


def describe(question):
    name = question.name if len(question.name) < 40 else f"{question.name[:20]}...{question.name[-16:]}"
    words = [question.server, name or ".", question.type, f"size={question.size}"]
    words += ["dnssec"] if question.dnssec else []
    words += ["signed"] if question.signed else []
    words += [f"version={question.version}"] if question.version else []
    words += [f"options={question.options.hex()}"] if question.options else []
    words += [f"opcode={question.opcode}"] if question.opcode else []
    words += [] if question.recursion else ["no-recursion"]
    words += [f"class={question.dns_class}"] if question.dns_class != 1 else []
    return " ".join(words)


def main():
    prepare()
    asked = list(dict.fromkeys(questions.questions()))
    servers = [
        subprocess.Popen(["named", "-f", "-c", "/etc/bind/named.conf"]),
        subprocess.Popen(["unbound", "-d", "-c", "/etc/unbound/unbound.conf"]),
        subprocess.Popen(DNSMASQ),
    ]
    try:
        for server in SERVERS:
            wait_for(server)
        with open(sys.argv[1], "w") as file:
            for identifier, question in enumerate(asked, 0x4300):
                try:
                    answer = ask(identifier, question)
                except TimeoutError:
                    raise SystemExit(f"no answer to: {describe(question)}") from None
                file.write(f"{describe(question)}: {base64.b64encode(answer).decode()}\n")
    finally:
        for server in servers:
            server.terminate()
            server.wait()
    print(f"{len(asked)} answers, {os.path.getsize(sys.argv[1])} bytes")


if __name__ == "__main__":
    main()
