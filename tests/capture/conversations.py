"""conversations.py plant FILE: writes a capture of connections, in which all that counts is known.
conversations.py check JSON: compares what zxcapture says of it with what was planted.
conversations.py compare JSON FIELDS NAME: compares the connections of a capture with tshark's fields."""
import collections
import json
import struct
import sys

FIN, SYN, RST, ACK = 1, 2, 4, 16
WAY = "frames bytes retransmissions out_of_order resets zero_windows".split()


class Capture:
    def __init__(self, path):
        self.file = open(path, "wb")
        self.file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1))

    def add(self, ms, source, dest, flags, sequence, acknowledgment=0, size=0, window=1000, vlan=None):
        """An end is the last byte of an address, and a port. Above 128, addresses are of IPv6."""
        tcp = struct.pack(">HHIIBBHHH", source[1], dest[1], sequence % 2**32, acknowledgment % 2**32,
                          5 << 4, flags, window, 0, 0) + bytes(size)
        if source[0] > 128:
            packet = struct.pack(">IHBB", 6 << 28, len(tcp), 6, 64) + bytes(15) + bytes([source[0]]) + \
                bytes(15) + bytes([dest[0]]) + tcp
        else:
            packet = struct.pack(">BBHHHBBHBBBBBBBB", 0x45, 0, 20 + len(tcp), 1, 0, 64, 6, 0,
                                 10, 0, 0, source[0], 10, 0, 0, dest[0]) + tcp
        tag = struct.pack(">HH", 0x8100, vlan) if vlan else b""
        frame = bytes(12) + tag + struct.pack(">H", 0x86DD if source[0] > 128 else 0x0800) + packet
        self.file.write(struct.pack("<IIII", 1000 + ms // 1000, ms % 1000 * 1000, len(frame), len(frame)) + frame)


def plant(path):
    add = Capture(path).add
    # The numbers wrap; the second of three segments is sent again, and only the first and the last
    # are acknowledged for certain.
    a, b, n, m = (1, 1001), (2, 80), 2**32 - 700, 5000
    add(0, a, b, SYN, n, vlan=7)
    add(20, b, a, SYN | ACK, m, n + 1, vlan=7)
    add(25, a, b, ACK, n + 1, m + 1, vlan=7)
    add(100, a, b, ACK, n + 1, m + 1, 500, vlan=7)
    add(130, b, a, ACK, m + 1, n + 501, vlan=7)
    add(200, a, b, ACK, n + 501, m + 1, 500, vlan=7)
    add(300, a, b, ACK, n + 501, m + 1, 500, vlan=7)
    add(310, b, a, ACK, m + 1, n + 1001, vlan=7)
    add(400, a, b, ACK, n + 1001, m + 1, 500, vlan=7)
    add(410, b, a, ACK, m + 1, n + 1501, vlan=7)
    # The server's second segment comes last, and the client closes its window twice. Both finish.
    a, b = (1, 1002), (2, 80)
    add(500, a, b, SYN, 10)
    add(501, b, a, SYN | ACK, 20, 11)
    add(502, a, b, ACK, 11, 21)
    add(510, b, a, ACK, 21, 11, 100)
    add(511, b, a, ACK, 221, 11, 100)
    add(512, b, a, ACK, 121, 11, 100)
    add(513, a, b, ACK, 11, 321, window=0)
    add(514, a, b, ACK, 11, 321, window=0)
    add(520, a, b, FIN | ACK, 11, 321)
    add(521, b, a, FIN | ACK, 321, 12)
    add(522, a, b, ACK, 12, 322)
    # Refused; without an answer; the ports of the refused one again.
    add(600, (1, 1003), b, SYN, 30)
    add(601, b, (1, 1003), RST | ACK, 0, 31)
    for ms in (700, 1700, 3700):
        add(ms, (1, 1004), b, SYN, 40)
    add(4000, (1, 1003), b, SYN, 31000)
    add(4001, b, (1, 1003), SYN | ACK, 90, 31001)
    # Two connections of the same ports, of which only the server's half was captured; then two of
    # which the second SYN is missing; then one that is accepted when it tries again.
    for ms, n, m in ((4100, 50, 60), (4200, 5000, 6000)):
        add(ms, b, (1, 1006), SYN | ACK, m, n + 1)
        add(ms + 10, b, (1, 1006), FIN | ACK, m + 1, n + 1)
    add(4300, (1, 1007), b, SYN, 70)
    add(4301, b, (1, 1007), SYN | ACK, 80, 71)
    add(4302, (1, 1007), b, RST, 71)
    add(4400, b, (1, 1007), SYN | ACK, 8000, 7001)
    add(4401, (1, 1007), b, ACK, 7001, 8001)
    add(4500, (1, 1008), b, SYN, 90)
    add(4501, b, (1, 1008), RST | ACK, 0, 91)
    add(4600, (1, 1008), b, SYN, 90)
    add(4601, b, (1, 1008), SYN | ACK, 300, 91)
    # Of the first one, only the client's half was captured; of the second one, only the server's.
    add(4700, (1, 1009), b, SYN, 100)
    add(4701, (1, 1009), b, RST, 101)
    add(4800, b, (1, 1009), SYN | ACK, 400, 501)
    # The client asks twice whether the server is there, then sends its last byte again, which was
    # never acknowledged.
    a, b = (201, 1005), (202, 80)
    add(5000, a, b, ACK, 100, 200, 10)
    add(5010, b, a, ACK, 200, 110)
    add(6000, a, b, ACK, 109, 200)
    add(7000, a, b, ACK, 109, 200, 1)
    add(8000, a, b, ACK, 110, 200, 1)
    add(8500, a, b, ACK, 110, 200, 1)


#          port  state        VLANs  handshake, round trips to the server; retransmissions, out of order,
#                                    resets, zero windows to the server; the same to the client
PLANTED = [(1001, "open", [7], 25000, [30000, 10000], [1, 0, 0, 0], [0, 0, 0, 0]),
           (1002, "closed", [], 2000, [], [0, 0, 0, 2], [0, 1, 0, 0]),
           (1003, "reset", [], None, [], [0, 0, 0, 0], [0, 0, 1, 0]),
           (1003, "open", [], None, [], [0, 0, 0, 0], [0, 0, 0, 0]),
           (1004, "half-seen", [], None, [], [2, 0, 0, 0], [0, 0, 0, 0]),
           (1006, "half-seen", [], None, [], [0, 0, 0, 0], [0, 0, 0, 0]),
           (1006, "half-seen", [], None, [], [0, 0, 0, 0], [0, 0, 0, 0]),
           (1007, "reset", [], None, [], [0, 0, 1, 0], [0, 0, 0, 0]),
           (1007, "open", [], None, [], [0, 0, 0, 0], [0, 0, 0, 0]),
           (1008, "reset", [], None, [], [1, 0, 0, 0], [0, 0, 1, 0]),
           (1009, "half-seen", [], None, [], [0, 0, 0, 0], [0, 0, 0, 0]),
           (1009, "reset", [], None, [], [0, 0, 1, 0], [0, 0, 0, 0]),
           (1005, "open", [], None, [10000], [1, 0, 0, 0], [0, 0, 0, 0])]


def connections_in(path):
    with open(path) as lines:
        return [json.loads(line) for line in lines]


def check(path):
    got = []
    for one in connections_in(path):
        up, down = one["to_server"], one["to_client"]
        trips = [up["round_trip_most_us"], up["round_trip_least_us"]][:up["round_trips"]] if "round_trips" in up else []
        got.append((one["client_port"], one["state"], one["vlans"], one.get("handshake_us"), trips,
                    [up[name] for name in WAY[2:]], [down[name] for name in WAY[2:]]))
    def order(row): return row[:2]
    for expected, found in zip(sorted(PLANTED, key=order), sorted(got, key=order), strict=True):
        if expected != found:
            sys.exit(f"planted {expected}, but zxcapture found {found}")


def add_to(ends, numbers):
    """The connection of both ends, in their order, with the numbers of both ways."""
    (one, up), (other, down) = sorted(zip(ends, numbers))
    return one, other, up, down


def joined(way):
    """tshark takes a segment for sent again if it fills a hole long after those around it."""
    frames, size, again, late, *others = way
    return [frames, size, again + late, *others]


def compare(path, shown, name):
    ours = sorted(add_to([(c["client"], c["client_port"]), (c["server"], c["server_port"])],
                         [joined([c[way][number] for number in WAY]) for way in ("to_server", "to_client")])
                  for c in connections_in(path)
                  if (c["client"], c["client_port"]) != (c["server"], c["server_port"]))
    streams = collections.defaultdict(lambda: collections.defaultdict(lambda: [0] * len(WAY)))
    with open(shown) as lines:
        for line in lines:
            stream, s4, s6, sport, d4, d6, dport, size, reset, again, late, zero = line.rstrip("\n").split("\t")
            if stream == "":
                continue
            source, dest = (s4 or s6, int(sport)), (d4 or d6, int(dport))
            if source == dest:
                continue  # nobody can tell the ways apart
            streams[stream][dest]
            for i, more in enumerate((1, int(size), again != "", late != "", reset == "1", zero != "")):
                streams[stream][source][i] += more
    theirs = sorted(add_to(list(ways), list(map(joined, ways.values()))) for ways in streams.values())
    if ours == theirs:
        print("same", len(ours), name)
        return
    for one in ours + theirs:
        if (one in ours) != (one in theirs):
            print(name, "zxcapture:" if one in ours else "tshark:   ", *one)


{"plant": plant, "check": check, "compare": compare}[sys.argv[1]](*sys.argv[2:])
