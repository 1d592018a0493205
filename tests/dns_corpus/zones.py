# SPDX-License-Identifier: GPL-2.0-only
"""What the servers know: one name for each shape that an answer can have."""

# So many addresses has many-N.example. 29 and 30 lie on either side of 512 bytes; 252 are the most that fit 4,096; the
# last is always cut.
COUNTS = [1, 2, 3, 5, 8, 13, 21, 28, 29, 30, 31, 64, 85, 130, 252, 253, 300]

# Seconds, the last one the most that a zone may say.
TIMES_TO_LIVE = [0, 1, 5, 299, 65535, 65536, 86400, 16777216, 2147483647]

CHAIN = 12

# Lengths of a CNAME's target as text, around what a stored name may have, and the longest there is.
LONG_TARGETS = [100, 119, *range(123, 132), 190, 253]

# Around 127 characters, in labels of many sizes; asked under names that a wildcard covers.
LABEL_SIZES = [1, 3, 20, 62, 63]
LONG_QUESTIONS = [60, *range(124, 131), 253]


def address(number):
    return f"198.18.{number // 250}.{number % 250 + 1}"


def long_name(length, label, suffix):
    """Of `length` characters: labels of `label` bytes, save where that does not come out even, then the suffix."""
    rest = length - len(suffix) - 1
    sizes = []
    while rest > max(label, 2):
        # A dot must not be what is left over.
        size = label if rest - label != 1 else label - 1
        sizes.append(size)
        rest -= size + 1
    sizes.append(rest)
    letters = "abcdefghijklmnopqrstuvwxyz"
    name = ".".join(letters[place % 26] * size for place, size in enumerate(sizes)) + "." + suffix
    assert len(name) == length and max(sizes) <= 63, (length, label, sizes)
    return name


def soa(serial=1):
    return f"@ 3600 IN SOA ns.example. hostmaster.example. {serial} 3600 600 86400 900"


def many():
    return [f"many-{count} 300 IN A {address(number)}" for count in COUNTS for number in range(count)]


def chain():
    links = [f"link-{place} {100 + place} IN CNAME link-{place + 1}" for place in range(CHAIN)]
    return [*links, f"link-{CHAIN} 30 IN A 192.0.2.50", f"link-{CHAIN} 30 IN A 192.0.2.51"]


def long_targets():
    """Two targets of each length: one ends in the zone's name, one in a name that the answer already has."""
    lines = []
    for length in LONG_TARGETS:
        for kind, label, suffix in (("wide", 63, "example"), ("narrow", 9, "example")):
            target = long_name(length, label, suffix)
            lines += [f"to-{kind}-{length} 60 IN CNAME {target}.", f"{target}. 60 IN A 192.0.2.60"]
        alias = f"to-own-{length}"
        target = long_name(length, 24, f"{alias}.example")
        lines += [f"{alias} 60 IN CNAME {target}.", f"{target}. 60 IN A 192.0.2.61"]
        if length < 240:
            middle = long_name(length - 10, 24, f"{alias}-twice.example")
            target = f"{'z' * 9}.{middle}"
            lines += [f"{alias}-twice 60 IN CNAME {middle}.", f"{middle}. 60 IN CNAME {target}.",
                      f"{target}. 60 IN A 192.0.2.62"]
    return lines


def example_zone():
    return [
        "$TTL 600", soa(),
        "@ IN NS ns.example.", "ns IN A 192.0.2.1", "ns IN AAAA 2001:db8::1",
        "@ IN A 192.0.2.2", "@ IN MX 10 mail.example.", "@ IN TXT \"v=spf1 -all\"",
        *many(), *chain(), *long_targets(),
        *[f"lasts-{seconds} {seconds} IN A 192.0.2.3" for seconds in TIMES_TO_LIVE],
        "mixed IN A 192.0.2.10", "mixed IN A 192.0.2.11", "mixed IN AAAA 2001:db8::10",
        "mixed IN MX 10 mail.example.", "mixed IN MX 20 backup.mail.example.", "mixed IN MX 30 mx.else.test.",
        "mixed IN TXT \"one\" \"two\"", f"mixed IN TXT \"{'t' * 255}\"",
        "mixed IN SRV 1 2 443 mail.example.", "mixed IN CAA 0 issue \"ca.example\"",
        "mixed IN HTTPS 1 . alpn=h2 ipv4hint=192.0.2.10",
        "mixed IN NAPTR 10 10 \"u\" \"sip\" \"!^.*$!sip:a@example!\" .",
        "mail IN A 192.0.2.20", "mail IN A 192.0.2.21", "mail IN AAAA 2001:db8::20",
        "backup.mail IN A 192.0.2.22",
        "_sip._udp IN SRV 0 5 5060 mail.example.", "_sip._udp IN SRV 1 5 5060 backup.mail.example.",
        "https IN HTTPS 1 . alpn=h2,h3 ipv4hint=192.0.2.30,192.0.2.31 ipv6hint=2001:db8::30", "https IN A 192.0.2.30",
        "https-alias IN HTTPS 0 https.example.", "_dns IN SVCB 1 mail.example. alpn=dot port=853",
        "six IN AAAA 2001:db8::6", "six-by-alias IN CNAME six",
        "*.wild IN A 192.0.2.40", "*.wild IN A 192.0.2.41", "*.wild-alias IN CNAME any.wild.example.",
        "*.w IN A 192.0.2.42",
        "outside IN CNAME www.else.test.", "nowhere-alias IN CNAME nowhere.example.",
        "far-alias IN CNAME www.far.invalid.",
        "moved IN DNAME else.test.", f"grown IN DNAME {long_name(150, 50, 'w.example')}.",
        "child IN NS ns.child.example.", "child IN NS ns.example.", "ns.child IN A 192.0.2.70",
        "dotted\\.label IN A 192.0.2.80", "zero\\000byte IN A 192.0.2.81", "high\\200\\255 IN A 192.0.2.82",
        "with\\032blank IN A 192.0.2.83", "star\\*star IN A 192.0.2.84",
        "zero-alias IN CNAME zero\\000byte", "dotted-alias IN CNAME dotted\\.label",
        "unknown IN TYPE65280 \\# 4 c0000201", "unknown IN A 192.0.2.85",
        "twice IN CNAME same.else.test.",
        "UPPER.Example. IN A 192.0.2.86", "MiXeD-alias IN CNAME UPPER",
    ]


def else_zone():
    return [
        "$TTL 120", soa(), "@ IN NS ns", "ns IN A 203.0.113.1",
        "www IN CNAME cdn.edge", "cdn.edge 20 IN A 203.0.113.10", "cdn.edge 20 IN A 203.0.113.11",
        "mx IN A 203.0.113.12", "same IN A 192.0.2.10",
    ]


def signed_zone():
    return [
        "$TTL 300", soa(), "@ IN NS ns.example.", "@ IN A 192.0.2.90",
        "www IN CNAME host", "host IN A 192.0.2.91", "host IN A 192.0.2.92",
        *[f"many IN A {address(number)}" for number in range(40)],
        "*.wild IN A 192.0.2.93", "https IN HTTPS 1 . alpn=h2",
    ]


ZONES = {"example": example_zone, "else.test": else_zone, "signed.test": signed_zone}

# What unbound says by itself; it asks bind for the rest.
UNBOUND_DATA = [
    'local-zone: "." transparent',
    'local-data: ". 60 IN A 192.0.2.116"',
    'local-zone: "local.test." static',
    *[f'local-data: "many-{count}.local.test. 300 IN A {address(number)}"'
      for count in (1, 2, 13, 29, 150, 252) for number in range(count)],
    'local-data: "mixed.local.test. 60 IN A 192.0.2.110"',
    'local-data: "mixed.local.test. 60 IN AAAA 2001:db8::110"',
    'local-data: "mixed.local.test. 60 IN TXT text"',
    'local-data: "forever.local.test. 2147483647 IN A 192.0.2.111"',
    'local-data: "beyond.local.test. 4294967295 IN A 192.0.2.115"',
    'local-data: "now.local.test. 0 IN A 192.0.2.112"',
    'local-data: "alias.local.test. 60 IN CNAME mixed.local.test."',
    'local-zone: "all.test." redirect',
    'local-data: "all.test. 7 IN A 192.0.2.113"',
    'local-data: "all.test. 7 IN A 192.0.2.114"',
    'local-zone: "never.test." always_refuse',
    'local-zone: "no.test." always_nxdomain',
    'local-zone: "null.test." always_null',
]

# What dnsmasq says by itself; it asks bind for the rest.
DNSMASQ_HOSTS = [f"{address(number)} many-{count}.home.test"
                 for count in (1, 2, 13, 29, 150, 240) for number in range(count)]
DNSMASQ_DATA = [
    "--local=/home.test/",
    "--host-record=plain.home.test,192.0.2.120,120",
    "--host-record=now.home.test,10.7.0.1,0",
    "--host-record=dual.home.test,192.0.2.121,2001:db8::121",
    "--address=/wild.home.test/192.0.2.122",
    "--address=/blocked.home.test/",
    "--address=/null.home.test/#",
    "--cname=www.home.test,plain.home.test,60",
    "--cname=shop.home.test,www.home.test,60",
    "--cname=*.any.home.test,plain.home.test",
    "--txt-record=text.home.test,v=spf1 -all",
    "--mx-host=home.test,plain.home.test,10",
    "--srv-host=_sip._udp.home.test,dual.home.test,5060",
    "--dns-rr=svc.home.test,65,000100000100030268320004000400c0000232",
]
