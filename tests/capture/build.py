"""Builds frames of every layer that the capture tool knows, with random fields, and writes them to a
capture file."""
import random
import struct

ETHERNET = 1
R = random.Random(1)


def u16(value):
    return struct.pack(">H", value & 0xFFFF)


def u32(value):
    return struct.pack(">I", value & 0xFFFFFFFF)


def some(size):
    return R.randbytes(size)


def checksum(data):
    data += b"\0" * (len(data) % 2)
    total = sum(struct.unpack(f">{len(data) // 2}H", data))
    while total > 0xFFFF:
        total = (total & 0xFFFF) + (total >> 16)
    return (total ^ 0xFFFF) ^ (R.random() < 0.1)  # some are wrong


def tcp_options():
    options = [b"\1", b"\2\4" + some(2), b"\3\3" + bytes([R.randrange(15)]), b"\4\2",
               b"\5\x12" + some(16), b"\x08\x0a" + some(8), b"\xfd\4" + some(2)]
    chosen = b"".join(R.sample(options, R.randrange(4)))
    return chosen + b"\1" * (-len(chosen) % 4)


def tcp():
    options = tcp_options()
    size = 20 + len(options)
    flags = R.randrange(512)
    header = some(12) + u16((size // 4) << 12 | flags) + some(2) + u16(0) + some(2) + options
    return 6, header + some(R.randrange(50)), 16


def rtp():
    padded, extended, contributors = R.random() < 0.2, R.random() < 0.2, R.choice([0, 0, 0, 2, 15])
    first = 0x80 | padded << 5 | extended << 4 | contributors
    data = bytes([first, R.randrange(256)]) + some(10 + 4 * contributors)
    if extended:
        words = R.randrange(4)
        data += some(2) + u16(words) + some(4 * words)
    data += some(R.randrange(1, 40))
    if padded:
        count = R.randrange(1, 9)
        data += bytes(count - 1) + bytes([count])
    return data


def udp():
    data = rtp() if R.random() < 0.8 else some(R.randrange(30))
    return 17, u16(R.choice([5004, 1234])) + u16(5004) + u16(8 + len(data)) + u16(0) + data, 6


def icmp():
    kind = R.choice([0, 8, 5, 3, 13])
    code = R.randrange(16) if kind == 3 else 0
    return 1, bytes([kind, code]) + u16(0) + some(4) + some(28), 2


def group(is_ipv6):
    return b"\xff\x0e" + some(14) if is_ipv6 else bytes([R.randrange(224, 240)]) + some(3)


def source(is_ipv6):
    return b"\x20\x01" + some(14) if is_ipv6 else b"\x0a" + some(3)


def records(is_ipv6):
    count = R.randrange(5)
    data = u16(0) + u16(count)
    for _ in range(count):
        words, sources = R.choice([0, 0, 2]), R.randrange(3)
        data += bytes([R.randrange(1, 7), words]) + u16(sources) + group(is_ipv6)
        data += b"".join(source(is_ipv6) for _ in range(sources)) + some(4 * words)
    return data


def query_end(is_ipv6):
    if R.random() < 0.4:
        return b""
    sources = R.randrange(4)
    return bytes([2, 125]) + u16(sources) + b"".join(source(is_ipv6) for _ in range(sources))


def igmp():
    kind = R.choice([0x11, 0x12, 0x16, 0x17, 0x22])
    if kind == 0x22:
        return 2, bytes([kind, 0]) + u16(0) + records(False), 2
    data = bytes([kind, R.choice([0, 100]) if kind == 0x11 else 0]) + u16(0) + group(False)
    return 2, data + (query_end(False) if kind == 0x11 else b""), 2


def icmpv6():
    kind = R.choice([1, 2, 128, 129, 130, 131, 132, 133, 135, 136, 137, 143])
    head = bytes([kind, R.randrange(7) if kind == 1 else 0]) + u16(0)
    if kind == 143:
        return 58, head + records(True), 2
    if kind in (130, 131, 132):
        data = head + u16(R.choice([0, 1000])) + u16(0) + group(True)
        return 58, data + (query_end(True) if kind == 130 else b""), 2
    if kind in (135, 136, 137):
        return 58, head + some(4) + source(True) + (source(True) if kind == 137 else b""), 2
    return 58, head + some(4 if kind < 128 else 20), 2


def extensions(protocol):
    """The first header and all of them, in front of `protocol`. The last is the whole fragment."""
    chain = R.sample([0, 60, 43, 51, 44], R.choice([0, 0, 1, 2, 3]))
    chain.sort(key=[0, 60, 43, 51, 44].index)
    data = b""
    for kind, following in zip(chain, chain[1:] + [protocol]):
        words = R.randrange(3)
        if kind == 44:
            offset, more = R.choice([0, 0, R.randrange(8192)]), R.random() < 0.3
            data += bytes([following, 0]) + u16(offset << 3 | more) + some(4)
        elif kind == 51:
            data += bytes([following, 4]) + u16(0) + some(20)
        elif kind == 43:  # of type 4, with no segments left
            data += bytes([following, 2, 4, 0, 0, 0]) + u16(0) + source(True)
        else:  # options that are padding
            data += bytes([following, words, 1, 4 + 8 * words]) + bytes(4 + 8 * words)
    return (chain + [protocol])[0], data


def with_checksum(segment, at, pseudo):
    if at is None:
        return segment
    return segment[:at] + u16(checksum(pseudo + segment)) + segment[at + 2:]


def ipv4():
    protocol, segment, at = R.choice([tcp, udp, udp, icmp, igmp])()
    ends = source(False) + group(False)
    is_plain = protocol in (1, 2)
    segment = with_checksum(segment, at,
                            b"" if is_plain else ends + u16(protocol) + u16(len(segment)))
    options = b"\x94\x04\0\0" if R.random() < 0.3 else b""
    fragment = R.choice([0, 0, 0x4000, 0x4000, 0x2000, 0x2000 | R.randrange(1, 8191), R.randrange(1, 100)])
    size = 20 + len(options)
    header = bytes([0x40 | size // 4, R.randrange(256)]) + u16(size + len(segment)) + some(2)
    header += u16(fragment) + bytes([R.randrange(1, 256), protocol]) + u16(0) + ends + options
    header = header[:10] + u16(checksum(header)) + header[12:]
    return 0x0800, header + segment


def ipv6():
    protocol, segment, at = R.choice([tcp, udp, udp, icmpv6, icmpv6])()
    ends = source(True) + group(True)
    segment = with_checksum(segment, at, ends + u32(len(segment)) + u32(protocol))
    first, headers = extensions(protocol)
    head = u32(6 << 28 | R.randrange(1 << 28)) + u16(len(headers) + len(segment))
    return 0x86DD, head + bytes([first, R.randrange(1, 256)]) + ends + headers + segment


def frame():
    kind, packet = R.choice([ipv4, ipv6])()
    data = packet
    for tag in R.sample([0x8100, 0x8100, 0x88A8], R.choice([0, 1, 2, 3])):
        data = some(2) + u16(kind) + data
        kind = tag
    data = b"\2" + some(5) + b"\2" + some(5) + u16(kind) + data
    captured = R.randrange(14, len(data)) if R.random() < 0.1 else len(data)
    return data[:captured], len(data)


def write(path, count):
    with open(path, "wb") as file:
        file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 262144, ETHERNET))
        for second in range(count):
            data, length = frame()
            file.write(struct.pack("<IIII", second, 0, len(data), length) + data)
