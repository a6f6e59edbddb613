#!/usr/bin/env python3
"""streams.py ZXCAPTURE SAMPLE: plants losses, disorder, jitter and damage in streams, in files and in
a network of its own, and compares what --streams measures with what was planted, with tshark and with
capinfos. --extract gives back the sample. Exit 77: skipped, because a program is missing."""
import json
import os
import random
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
import zlib

CAPTURE, SAMPLE = sys.argv[1:3]
PACKET = 188
MICRO = 1000000


def run(*arguments):
    return subprocess.run(arguments, check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout


def same(what, got, wanted, tolerance=0.0):
    assert abs(got - wanted) <= tolerance, f"{what}: {got} in place of {wanted}"


def rtp(sequence, timestamp, sender, kind, payload):
    return struct.pack(">BBHII", 0x80, kind, sequence % 65536, timestamp % 2**32, sender) + payload


def ip_frame(protocol, content, dest, vlan=None, source="10.0.0.2"):
    tag = b"" if vlan is None else struct.pack(">HH", 0x8100, vlan)
    header = struct.pack(">BBHHHBBH4s4s", 0x45, 0, 20 + len(content), 0, 0x4000, 16, protocol, 0,
                         socket.inet_aton(source), socket.inet_aton(dest))
    return bytes.fromhex("01005e00000102000000000a") + tag + b"\x08\x00" + header + content


def udp_frame(payload, dest, source_port=5000, vlan=None):
    udp = struct.pack(">HHHH", source_port, 1234, 8 + len(payload), 0) + payload
    return ip_frame(17, udp, dest, vlan)


def write_pcap(path, frames):
    """Frames are pairs of microseconds and bytes."""
    with open(path, "wb") as file:
        file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1))
        for at, frame in sorted(frames, key=lambda each: each[0]):
            file.write(struct.pack("<IIII", at // MICRO, at % MICRO, len(frame), len(frame)) + frame)


def objects(path, *options):
    return [json.loads(line) for line in run(CAPTURE, "--read", path, "--streams", "--json", *options).splitlines()]


def flows(path, *options):
    return {flow["destination"]: flow for flow in objects(path, *options)[-1]["flows"]}


def messages():
    with open(SAMPLE, "rb") as file:
        content = file.read()
    content = content[:len(content) // PACKET * PACKET]
    return [content[at:at + 7 * PACKET] for at in range(0, len(content), 7 * PACKET)]


def jitter_of(arrivals, clock):
    """RFC 3550, appendix A.8, in microseconds: the last value, the mean, the most."""
    values, jitter = [], 0.0
    for (before, its), (now, stamp) in filter(all, zip(arrivals, arrivals[1:])):  # None: a new beginning
        jitter += (abs((now - before) * clock / MICRO - (stamp - its)) - jitter) / 16
        values.append(jitter * MICRO / clock)
    return values[-1], sum(values) / len(values), max(values)


def planted(folder):
    """Exact: losses, packets that come late or twice, a restart, another clock, jitter, gaps."""
    random.seed(1)
    order = [n for n in range(65000, 67000) if n not in {65010, 65011, *range(66000, 66021)}]
    for n in random.sample(range(100, 1900, 7), 40):  # pairs that are not neighbours of one another
        order[n], order[n + 1] = order[n + 1], order[n]
    order.insert(1500, order[1490])
    order += range(80000, 80100)
    frames, arrivals, now = [], [], 1700000000 * MICRO
    for number, n in enumerate(order):
        now += random.randrange(100, 3000)
        if number != 0 and n == 80001:
            arrivals[-1] = None
        arrivals.append((now, n * 900))
        kind = 97 if n != 80099 else 98
        frames.append((now, udp_frame(rtp(n, n * 900, 7, kind, b"x" * 100), "239.0.0.1", vlan=10)))
    # Audio of a type that has a clock, which tshark knows, too.
    audio, at = [], 1700000000 * MICRO
    for n in range(500):
        arrival = at + n * 20000 + random.randrange(0, 9000)
        audio.append((arrival, n * 160))
        if n % 50 != 25:
            frames.append((arrival, udp_frame(rtp(n, n * 160, 9, 0, b"y" * 160), "10.9.9.9", 6000)))
    for n in range(80):  # four sources take turns
        frames.append((at + n * 5000, udp_frame(rtp(100 * (n % 4) + n // 4, n * 450, n % 4, 33, b"z"), "239.0.0.9")))
    path = folder + "/planted.pcap"
    write_pcap(path, frames)
    found = flows(path, "--rtp-clock", "97=45000")
    flow = found["239.0.0.1"]
    source, = flow["rtp"]
    assert flow["vlans"] == [10] and flow["kind"] == "RTP", flow
    wanted = {"packets": len(order), "lost": 23, "late": 40, "duplicates": 1, "restarts": 1, "strays": 0,
              "payload_type": 98, "clock_hz": 90000}
    assert {key: source[key] for key in wanted} == wanted, source
    times = [at for at, frame in frames if b"x" * 100 in frame]
    gaps = [b - a for a, b in zip(times, times[1:])]
    histogram = [sum(gap.bit_length() == step for gap in gaps) for step in range(13)]
    same("least gap", flow["gap_least_us"], min(gaps))
    same("longest gap", flow["gap_most_us"], max(gaps))
    same("mean gap", flow["gap_mean_us"], sum(gaps) / len(gaps), 1e-6)
    assert flow["gap_histogram"] == histogram[:len(flow["gap_histogram"])], flow["gap_histogram"]
    assert [(its["packets"], its["lost"]) for its in found["239.0.0.9"]["rtp"]] == [(20, 0)] * 4, found["239.0.0.9"]
    kept = [pair for n, pair in enumerate(audio) if n % 50 != 25]
    spoken, = found["10.9.9.9"]["rtp"]
    same("lost audio", spoken["lost"], 10)
    for its, values in (source, jitter_of(arrivals[:-1], 45000)), (spoken, jitter_of(kept, 8000)):
        for key, wanted in zip(("jitter_us", "jitter_mean_us", "jitter_most_us"), values):
            same(key, its[key], wanted, 1e-3)
    return path


def streams_of_tshark(path):
    text = run("tshark", "-r", path, "-n", "-q", "-o", "rtp.heuristic_rtp:TRUE", "-z", "rtp,streams").decode()
    number = r"\s+(-?[\d.]+)"
    for line in text.splitlines():
        match = re.match(r"\s*[\d.]+\s+[\d.]+\s+(\S+)\s+(\d+)\s+(\S+)\s+(\d+)\s+0x(\w+)\s+.*?\s(\d+)\s+(-?\d+) \(.*?%\)"
                         + number * 6, line)
        if match:
            part = match.groups()
            yield (part[0], int(part[1]), part[2], int(part[3]), int(part[4], 16)), \
                {"packets": int(part[5]), "lost": int(part[6]), "mean": float(part[11]), "most": float(part[12])}


def agrees_with_tshark(paths):
    compared = 0
    for path in paths:
        ours = {}
        for flow in objects(path)[-1]["flows"]:
            for source in flow.get("rtp", []):
                ours[flow["source"], flow["source_port"], flow["destination"], flow["destination_port"],
                     int(source["ssrc"], 16)] = source
        for key, theirs in streams_of_tshark(path):
            # One packet alone may be anything. tshark counts a duplicate against the losses, and does
            # not know of restarts.
            source = ours.get(key)
            if theirs["packets"] < 3 or source is None and os.path.dirname(path) != work:
                continue
            if source["duplicates"] or source["restarts"]:
                continue
            same(f"{path} {key} packets", source["packets"], theirs["packets"])
            same(f"{path} {key} lost", source["lost"], theirs["lost"])
            if source["payload_type"] < 96 and theirs["most"] > 0:
                same(f"{path} {key} jitter", source["jitter_most_us"] / 1000, theirs["most"], 0.01)
                if source["payload_type"] == 0:  # of video, it leaves out packets from the mean
                    same(f"{path} {key} mean jitter", source["jitter_mean_us"] / 1000, theirs["mean"], 0.05)
            compared += 1
    return compared


def agrees_with_capinfos(folder):
    """A file of one flow: packets, bytes, bytes each second, and the mean rate."""
    path = folder + "/one.pcap"
    frames = [(n * 12345, udp_frame(each, "239.0.0.2")) for n, each in enumerate(messages())]
    write_pcap(path, frames)
    names, values = (line.split("\t") for line in run("capinfos", "-TM", path).decode().splitlines())
    info = dict(zip(names, values))
    seconds = objects(path)
    flow, = seconds[-1]["flows"]
    same("packets", flow["packets"], int(info["Number of packets"]))
    same("bytes", flow["bytes"], int(info["Data size (bytes)"]))
    same("rate", flow["mean_bits_per_s"], float(info["Data bit rate (bits/sec)"]), 1)
    assert len(seconds) > 3, "an object a second"
    for number, each in enumerate(seconds[:-1]):
        bits = 8 * sum(len(frame) for at, frame in frames if at // MICRO == number)
        same(f"rate of second {number}", each["flows"][0]["bits_per_s"], bits)
    assert flow["kind"] == "TS" and flow["ts"]["continuity_errors"] == 0, flow["ts"]


def times(folder):
    """A quiet time is one object; time that goes back begins a new second and is no gap."""
    path = folder + "/times.pcap"
    frame = udp_frame(b"x" * 58, "239.0.0.8")
    write_pcap(path + ".1", [(at, frame) for at in (0, 500000, 10200000)])
    write_pcap(path + ".2", [(at, frame) for at in (3000000, 4500000)])
    run("mergecap", "-a", "-F", "pcap", "-w", path, path + ".1", path + ".2")
    seconds = [(each["time_us"], [flow["bits_per_s"] for flow in each["flows"]]) for each in objects(path)]
    assert seconds == [(1000000, [1600]), (10000000, [0]), (11000000, [800]), (4000000, [800]), (4500000, [800])], seconds
    flow, = objects(path)[-1]["flows"]
    assert (flow["packets"], flow["gap_least_us"], flow["gap_most_us"]) == (5, 500000, 9700000), flow


def many_ports(folder):
    """Flows that differ in the source port alone cost no more than others."""
    write_pcap(folder + "/ports.pcap", [(n, udp_frame(b"", "8.8.8.8", n)) for n in range(60000)])
    before = os.times().children_user
    run(CAPTURE, "--read", folder + "/ports.pcap", "--streams")
    assert os.times().children_user - before < 1, "more than 16 us a frame"


def continuity(folder):
    """Packets of one PID are taken out, sent twice and three times; the programme is known."""
    packets = [each[at:at + PACKET] for each in messages() for at in range(0, len(each), PACKET)]
    video = max({p[1] & 0x1F: 0 for p in packets}, key=lambda high: sum((p[1] & 0x1F) == high for p in packets))
    pid = next(((p[1] & 0x1F) << 8 | p[2]) for p in packets if p[1] & 0x1F == video and p[1] & 0x1F)
    mine = [n for n, p in enumerate(packets) if ((p[1] & 0x1F) << 8 | p[2]) == pid and p[3] & 0x30 == 0x10]
    chosen = mine[100:400:30]
    for n in reversed(chosen):
        packets[n:n + 1] = {0: [], 1: [packets[n]] * 2, 2: [packets[n]] * 3}[chosen.index(n) % 3]
    packets += packets[:7 - len(packets) % 7] if len(packets) % 7 else []
    frames = [(n * 1000, udp_frame(b"".join(packets[n:n + 7]), "239.0.0.3")) for n in range(0, len(packets), 7)]
    write_pcap(folder + "/damaged.pcap", frames)
    stream = flows(folder + "/damaged.pcap")["239.0.0.3"]["ts"]
    its = {each["pid"]: each for each in stream["pids"]}[pid]
    kinds = [n % 3 for n in range(len(chosen))]
    same("continuity errors", its["continuity_errors"], kinds.count(0) + kinds.count(2))
    same("duplicates", its["duplicates"], kinds.count(1) + kinds.count(2))
    shown = json.loads(run("ffprobe", "-v", "quiet", "-show_programs", "-of", "json", SAMPLE))["programs"]
    assert [(each["number"], each["pmt_pid"], sorted(part["pid"] for part in each["parts"]))
            for each in stream["programmes"]] == \
        [(each["program_num"], each["pmt_pid"], sorted(int(part["id"], 16) for part in each["streams"]))
         for each in shown], stream["programmes"]


def section(table, number, body):
    """With the CRC of ISO/IEC 13818-1, which takes the bits in the other order than zlib."""
    content = struct.pack(">BHHBBB", table, 0xB000 | 9 + len(body), number, 0xC1, 0, 0) + body
    turned = bytes(int(f"{byte:08b}"[::-1], 2) for byte in content)
    return content + struct.pack(">I", int(f"{zlib.crc32(turned) ^ 0xFFFFFFFF:032b}"[::-1], 2))


def table_packets(pid, content, counter=0):
    parts = [(b"\0" + content)[at:at + 184].ljust(184, b"\xff") for at in range(0, len(content) + 1, 184)]
    return [struct.pack(">BHB", 0x47, pid | (n == 0) << 14, 0x10 | n + counter) + part for n, part in enumerate(parts)]


def maps(folder):
    """Maps of three packets come at the same time, each packet twice; a map moves to another PID."""
    parts = b"".join(struct.pack(">BHH", 0x1B, 0xE100 + n, 0xF064) + bytes(100) for n in range(4))
    made = [section(2, n, struct.pack(">HH", 0xE100, 0xF000) + parts) for n in (1, 2, 3)]
    lists = [section(0, 1, struct.pack(">6H", 1, 0xE021, 2, 0xE022, 3, pid)) for pid in (0xE023, 0xE024)]
    pairs = zip(table_packets(0x21, made[0]), table_packets(0x22, made[1]))
    packets = table_packets(0, lists[0]) + [packet for pair in pairs for packet in pair for _ in range(2)] \
        + table_packets(0, lists[1], 1) + table_packets(0x24, made[2])
    write_pcap(folder + "/maps.pcap", [(n, udp_frame(packet, "239.0.0.10")) for n, packet in enumerate(packets)])
    found = flows(folder + "/maps.pcap")["239.0.0.10"]["ts"]["programmes"]
    assert [(each["number"], each["pmt_pid"], len(each["parts"])) for each in found] == \
        [(1, 0x21, 4), (2, 0x22, 4), (3, 0x24, 4)], found


def members(folder):
    """A host is in a group while it takes at least one source: what the records of IGMPv3 leave."""
    histories = [(True, (5, "12"), (6, "1")), (False, (5, "12"), (6, "1"), (6, "2")), (False, (3, "12"), (6, "21")),
                 (True, (4, ""), (6, "1")), (False, (4, ""), (3, "1"), (6, "1")), (True, (3, "1"), (3, "23"), (6, "12"))]
    frames = []
    for number, (_, *records) in enumerate(histories):
        for kind, sources in records:
            record = struct.pack(">BBH4B", kind, 0, len(sources), 239, 0, 1, number)
            record += b"".join(bytes([10, 0, 0, int(source)]) for source in sources)
            frames.append((len(frames), ip_frame(2, bytes.fromhex("2200000000000001") + record, "224.0.0.22")))
    write_pcap(folder + "/members.pcap", frames)
    joined = {each["group"]: each["joined"] for each in objects(folder + "/members.pcap")[-1]["members"]}
    assert joined == {f"239.0.1.{number}": each[0] for number, each in enumerate(histories)}, joined


def extraction(folder):
    """The sample comes back from RTP in disorder, with RTCP between, and from one of two sources."""
    all_frames = []
    for n, each in enumerate(messages()):
        late = 3500 if n % 10 == 3 else 0
        all_frames.append((n * 1000 + late, udp_frame(rtp(n, n * 900, 5, 33, each), "239.0.0.4")))
        all_frames.append((n * 1000 + 1, udp_frame(each[PACKET:] + each[:PACKET], "239.0.0.4", 7000)))
    all_frames.append((5, udp_frame(bytes.fromhex("80c80006") + bytes(24), "239.0.0.4")))
    write_pcap(folder + "/two.pcap", all_frames)
    command = [CAPTURE, "--read", folder + "/two.pcap", "--write", folder + "/out.ts", "--extract"]
    refused = subprocess.run(command + ["239.0.0.4:1234"], stderr=subprocess.PIPE, check=False)
    assert refused.returncode == 1 and b"several sources send to 239.0.0.4:1234" in refused.stderr, refused
    said = subprocess.run(command + ["10.0.0.2:5000>239.0.0.4:1234"], stderr=subprocess.PIPE, check=True).stderr
    assert b"packets written, 1 other datagrams left out" in said, said
    with open(folder + "/out.ts", "rb") as file:
        assert file.read() == b"".join(messages()), "the extracted stream"


def works(*arguments):
    return subprocess.run(arguments, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False).returncode == 0


def network(folder):
    """A network of two ends: what netem drops and delays, what the sender leaves out, and who joins."""
    space = f"streams{os.getpid()}"
    if not works("ip", "netns", "add", space):
        print("skipped in part: no network namespaces here")
        return
    try:
        inside = ("nsenter", "--net=/run/netns/" + space)
        for command in ("link add near type veth peer name far", "link set near up", "link set far up"):
            run(*inside, "ip", *command.split())
        has_vlan = works(*inside, "ip", *"link add link near name near.10 type vlan id 10".split())
        has_netem = works(*inside, "tc", *NETEM, "loss", "0%")
        print("VLAN interfaces:", has_vlan, " netem:", has_netem)
        port, vlans = ("near.10", [10]) if has_vlan else ("near", [])
        for command in (f"address add 10.1.0.1/24 dev {port}", f"link set {port} up", f"route add 239.0.0.0/8 dev {port}"):
            run(*inside, "ip", *command.split())
        with open(folder + "/live", "wb") as out:
            capture = subprocess.Popen([*inside, CAPTURE, "--interface", "far", "--streams", "--json"],
                                       stdout=out, stderr=subprocess.PIPE)
            capture.stderr.readline()
            time.sleep(0.5)
            subprocess.run([*inside, sys.executable, __file__, CAPTURE, SAMPLE, str(int(has_netem))], check=True)
            time.sleep(1.5)
            dropped = 0
            if has_netem:
                shown = run(*inside, "tc", "-s", "qdisc", "show", "dev", "near")
                dropped = int(re.search(rb"dropped (\d+)", shown).group(1))
                assert dropped > 0, "netem drops nothing"
            capture.send_signal(signal.SIGINT)
            capture.communicate(timeout=20)
        with open(folder + "/live", "rb") as lines:
            seconds = [json.loads(line) for line in lines]
        assert len(seconds) > 3, "an object a second"
        last = seconds[-1]
        found = {each["destination"]: each for each in last["flows"]}
        flow, tagged = found["239.0.0.5"], found["239.0.0.7"]
        source, = flow["rtp"]
        assert flow["vlans"] == vlans and flow["kind"] == "RTP+TS" and flow["members"] == 0, flow
        same("lost", source["lost"], dropped + 7)
        same("packets", source["packets"] + source["lost"], 2000)
        same("late", source["late"], 0)
        assert not has_netem or 200 < source["jitter_mean_us"] < 2000, source
        assert tagged["vlans"] == [20] and tagged["members"] == 1, tagged
        same("late in a VLAN", tagged["rtp"][0]["late"], 1)
        counts = [each["members"] for second in seconds for each in second["flows"]
                  if each["destination"] == "239.0.0.5"]
        assert 1 in counts, "the sender was a member until it ended"
        states = {each["group"]: each["joined"] for each in last["members"] if each["vlans"] == vlans}
        assert states["239.0.0.5"] is False and states["239.0.0.6"] is False, states
        assert any(group.startswith("ff") for group in states), "no group of MLD"
    finally:
        run("ip", "netns", "del", space)


NETEM = "qdisc replace dev near root netem limit 10000".split()


def send(has_netem):
    """Runs in the network: joins groups, leaves one, and sends 2000 datagrams without seven. Frames
    with a tag are made by hand, so they need no interface for their VLAN."""
    raw = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
    raw.bind(("near", 0))
    for n in (1, 2, 4, 3, 5):
        raw.send(udp_frame(rtp(n, n, 9, 33, messages()[0]), "239.0.0.7", vlan=20))
    report = bytes.fromhex("1600f900") + socket.inet_aton("239.0.0.7")
    raw.send(ip_frame(2, report, "239.0.0.7", 20, "10.0.0.3"))
    member = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    for group in ("239.0.0.5", "239.0.0.6"):
        request = socket.inet_aton(group) + socket.inet_aton("10.1.0.1")
        member.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, request)
    member.setsockopt(socket.IPPROTO_IP, socket.IP_DROP_MEMBERSHIP, request)
    sender = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sender.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_LOOP, 0)
    payload, begin = messages()[0], time.monotonic()
    for n in range(2000):
        if has_netem and n == 100:
            run("tc", *NETEM, "delay", "10ms", "1ms", "loss", "3%")
        if has_netem and n == 1900:
            time.sleep(0.1)
            run("tc", "qdisc", "change", *NETEM[2:], "delay", "0ms", "loss", "0%")
        time.sleep(max(0.0, begin + n * 0.002 - time.monotonic()))
        if n not in range(1000, 1007):
            stamp = int((time.monotonic() - begin) * 90000)
            sender.sendto(rtp(n, stamp, 5, 33, payload), ("239.0.0.5", 1234))


if len(sys.argv) > 3:
    send(sys.argv[3] == "1")
    sys.exit()
for program in ("tshark", "capinfos", "mergecap", "ffprobe", "ip", "tc"):
    if shutil.which(program) is None:
        print(f"skipped: no {program}")
        sys.exit(77)
with tempfile.TemporaryDirectory() as work:
    os.environ["WIRESHARK_CONFIG_DIR"] = work
    files = [planted(work)]
    same("streams compared with tshark", agrees_with_tshark(files), 5)
    if os.environ.get("ZX_CAPTURES"):
        media = os.environ["ZX_CAPTURES"] + "/media/"
        assert agrees_with_tshark([media + name for name in sorted(os.listdir(media)) if ".pcap" in name]) > 2
    agrees_with_capinfos(work)
    times(work)
    many_ports(work)
    continuity(work)
    maps(work)
    members(work)
    extraction(work)
    network(work)
