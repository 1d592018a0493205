"""Names that are asked for, and the patterns that rules hold against them."""

# fmt: off
NAMES = [
    b"www.example.com", b"example.com", b"cdn.example.net", b"a.b.example.org", b"login.example.org",
    b"social-login.example.com", b"x", b"", b"WWW.example.com", b"deep.er.cdn.example.net", b"captive.example.net",
    b"l" * 63 + b".example.com", b".".join([b"m" * 40] * 4), b"n" * 63 + b"." + b"o" * 63, b"n" * 63 + b"." + b"o" * 62,
    b"%s%d%n.example.com", b"caf\xe9.example.com", b"cut\0here.example.com", b"a*b.example.com",
    b"social-login.example.com.",
]
PATTERNS = [
    b"www.example.com", b"*.example.com", b"*", b"?", b"*cdn*", b"example.com", b"*.example.*", b"cdn.*.net",
    b"cdn?net", b"", b"a*b*c", b"*.org", b"www*", b"social-login.example.com", b"**", b"x", b"*example", b"l*",
    b"*m*m*m", b"*.net*", b"?*", b"*?x", b"%s*", b"*caf\xe9*", b"n" * 63 + b"." + b"o" * 62,
]
# fmt: on
DEFAULT_NAMES = [b"captive.example.net", b"www.example.com", b"", b"x", b"cdn.example.net", b"a.b.example.org"]


def small_name(dice):
    """Names of two letters meet patterns of two letters in every way that there is."""
    return (
        b"".join(dice.choice([b"a", b"b", b"ab", b"."]) for _ in range(dice.randrange(1, 8)))
        .strip(b".")
        .replace(b"..", b".")
    )


def small_pattern(dice):
    return b"".join(dice.choice([b"a", b"b", b"*", b"?", b"."]) for _ in range(dice.randrange(1, 7)))


def long_name(dice):
    """Around the ends of the buffers."""
    name = b""
    end = dice.choice([100, 125, 126, 127, 128, 129, 200])
    while len(name) < end:
        size = dice.choice([1, 10, 40, 63, 64, 100, 126, 127, 191, 192, 255])
        name += (b"." if name else b"") + bytes([dice.choice(b"xyz")]) * (
            min(size, end - len(name)) if dice.random() < 0.7 else size
        )
    return name
