"""fields.py FRAMES VALUES FILE...: compares FILE.columns and FILE.json with FILE.tshark."""
import csv
import json
import re
import sys

LISTS = ("vlan", "ieee8021ad", "tcp.options.sack", "igmp.maddr", "igmp.record", "icmpv6.mldr")
HEADERS = re.compile(
    r"^(eth|sll|raw|null)?(:ethertype|:vlan|:ieee8021ad)*(:arp|:ip|:ipv6(:ipv6\.\w+)*)?"
    r"(:tcp|:udp|:icmp|:icmpv6|:igmp)?(:rtp)?(?=:|$)")
wrong = compared = frames = flaws = 0


def outermost(name, tshark, layers):
    """tshark's values that belong to the outermost headers."""
    layer = name.split(".")[0]
    values = tshark.split(",") if tshark and layer in ["frame", *layers] else []
    if layer in ("vlan", "ieee8021ad"):
        return values[:layers.count(layer)]
    return values if name.startswith(LISTS) else values[:1]


def is_explained(name, expected, got, inner, flaw, shown):
    """Whether tshark shows something else than the field of the outermost header."""
    layer = name.split(".")[0]
    return (
        (flaw and not (expected and got)) or  # where both stop in a bad header differs
        (not expected and inner[1:2] in (["pim"], ["dvmrp"], ["atmarp"])) or  # taken as theirs alone
        (not got and layer in inner) or  # the field of an inner header of the same kind
        (not got and layer == "rtp") or  # more looks like RTP to tshark
        (layer == "arp" and shown["eth.type"] == "0x8035") or  # we have no names for RARP
        (name == "frame.len" and int(got[0]) >= 2**31) or  # tshark ends there
        (name == "frame.len" and expected == ["0"]) or  # a file that lies: less than was captured
        (name == "ip.len" and got == ["0"]) or  # tshark shows how long it must be
        (name == "ip.dst" and shown["ip.cur_rt"]) or  # the end of a source route
        (name == "tcp.len" and "1" in shown["ip.flags.mf"]) or  # none for a fragment
        (name in ("tcp.flags.ae", "tcp.flags.cwr", "tcp.flags.ece") and shown["tcp.flags.ace"]))


def as_json(text):
    return int(text, 0) if re.fullmatch(r"0x[0-9a-f]+|\d+", text) else text


def of_json(members, name):
    member = members.get(name, [])
    values = member if isinstance(member, list) else [member]
    return [int(value) if isinstance(value, bool) else value for value in values]


def report(place, name, expected, got):
    global wrong
    wrong += 1
    if wrong <= 40:
        print(f"{place}: {name} is {expected}, but {got} for zxcapture")


def compare_frame(place, shown, columns, members):
    global compared, frames, flaws
    protocols = shown["frame.protocols"]
    headers = HEADERS.match(protocols)[0]
    layers, inner = headers.split(":"), protocols[len(headers):].split(":")
    flaw = columns.pop("zx.flaw")
    frames += 1
    flaws += flaw != ""
    for name, ours in columns.items():
        got = ours.split(",") if ours else []
        expected = outermost(name, shown[name], layers)
        if got != expected and not is_explained(name, expected, got, inner, flaw, shown):
            report(f"{place} ({protocols})", name, expected, got)
        compared += len(got)
        if name == "frame.time_epoch":
            got = [str(float(time)) for time in got]
            members[name] = str(members[name])
        if list(map(as_json, got)) != of_json(members, name):
            report(place, name + " of --fields", got, members.get(name))


for file in sys.argv[3:]:
    with open(file + ".tshark") as shown, open(file + ".columns") as columns, open(file + ".json") as lines:
        rows = zip(csv.DictReader(shown, delimiter="\t"), csv.DictReader(columns, delimiter="\t"), lines, strict=True)
        for number, (theirs, ours, line) in enumerate(rows, 1):
            compare_frame(f"{file.split('/')[-1]} frame {number}", theirs, ours, json.loads(line))
print(f"{frames} frames, {flaws} with flaws, and {compared} values compared, {wrong} differ")
sys.exit(wrong > 0 or frames < int(sys.argv[1]) or compared < int(sys.argv[2]))
