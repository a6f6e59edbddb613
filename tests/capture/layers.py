#!/usr/bin/env python3
"""layers.py CAPTURE_FIELDS FRAMES VALUES: compares what the capture tool reads of every frame with
what tshark shows, for built frames and for all capture files in $ZX_CAPTURES. Fails when any value
differs, or when there are fewer frames or values. Exit 77: skipped, there is no tshark."""
import os
import re
import shutil
import subprocess
import sys
import tempfile

import build

# The name of an encapsulation for editcap, and its number in tshark's field.
LINKS = {"ether": 1, "rawip": 7, "null": 15, "linux-sll": 25, "linux-sll2": 210}

EXTENSIONS = {"0": "ipv6.hopopts.nxt", "43": "ipv6.routing.nxt", "44": "ipv6.fraghdr.nxt",
              "51": "ah.next_header", "60": "ipv6.dstopts.nxt", "135": "mip6.proto",
              "139": "hip.proto", "140": "shim6.nxt"}

FIELDS = """frame.protocols frame.len frame.cap_len _ws.malformed _ws.expert.message
eth.type eth.len sll.etype vlan.id vlan.priority ieee8021ad.id ieee8021ad.priority ip.src ip.dst ip.cur_rt ip.ttl ip.proto ip.id
ip.flags.df ip.flags.mf ip.frag_offset ip.checksum.status ip.len ip.version ip.hdr_len ipv6.src ipv6.dst ipv6.hlim ipv6.nxt
ipv6.fraghdr.offset ipv6.fraghdr.more ipv6.fraghdr.ident
tcp.srcport tcp.dstport tcp.len tcp.seq_raw tcp.ack_raw tcp.flags tcp.window_size_value tcp.urgent_pointer
tcp.checksum.status tcp.options.mss_val tcp.options.wscale.shift tcp.options.sack_perm tcp.options.sack_le
tcp.options.sack_re tcp.options.timestamp.tsval tcp.options.timestamp.tsecr
udp.srcport udp.dstport udp.length udp.checksum.status
icmp.type icmp.code icmp.ident icmp.seq icmp.redir_gw icmp.mtu icmp.checksum.status
icmpv6.type icmpv6.code icmpv6.echo.identifier icmpv6.echo.sequence_number icmpv6.mtu icmpv6.checksum.status
icmpv6.nd.ns.target_address icmpv6.nd.na.target_address icmpv6.nd.rd.target_address
icmpv6.mld.multicast_address icmpv6.mldr.mar.multicast_address icmpv6.mldr.mar.record_type
icmpv6.mldr.mar.nb_sources icmpv6.mldr.mar.source_address icmpv6.mld.nb_sources icmpv6.mld.source_address
igmp.type igmp.version igmp.maddr igmp.record_type igmp.num_src igmp.saddr igmp.checksum.status
rtp.version rtp.marker rtp.p_type rtp.seq rtp.timestamp rtp.ssrc rtp.payload""".split()
FIELDS += EXTENSIONS.values()


def run(*arguments, **options):
    return subprocess.run(arguments, check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, **options).stdout


def rows(text):
    lines = text.decode(errors="replace").splitlines()
    names = lines[0].split("\t")
    return [dict(zip(names, line.split("\t"))) for line in lines[1:]]


def configure(folder):
    """Switches off the protocols inside TCP and UDP but RTP."""
    kept = r"(frame|eth|ethertype|vlan|ieee8021ad|sll|raw|null|arp|ip|ipv6|ipv6\..*|ah|mipv6|hip|shim6|" \
           r"icmp|icmpv6|igmp|tcp|tcp\..*|mptcp|udp|rtp|data|_ws\..*)"
    os.environ["WIRESHARK_CONFIG_DIR"] = folder
    with open(folder + "/disabled_protos", "w") as file:
        for line in run("tshark", "-G", "protocols").decode().splitlines():
            name = line.split("\t")[2]
            if not re.fullmatch(kept, name):
                print(name, file=file)


def tshark(path):
    settings = ["ip.defragment:FALSE", "ipv6.defragment:FALSE", "ip.tso_support:FALSE", "ip.check_checksum:TRUE",
                "tcp.analyze_sequence_numbers:FALSE", "tcp.relative_sequence_numbers:FALSE",
                "tcp.desegment_tcp_streams:FALSE", "tcp.check_checksum:TRUE", "udp.check_checksum:TRUE"]
    arguments = ["-Q", "-n", "-r", path, "-T", "fields", "-E", "header=y", "-E", "occurrence=a",
                 "-d", "udp.port==1-65535,rtp"]
    for setting in settings:
        arguments += ["-o", setting]
    for field in FIELDS:
        arguments += ["-e", field]
    return rows(run("tshark", *arguments))


def files(folder):
    """The built frames, and one file for each link type with all frames of the captures."""
    built = folder + "/built.pcap"
    build.write(built, 6000)
    yield built
    captures = os.environ.get("ZX_CAPTURES", "")
    found = [os.path.join(at, name) for at, _, names in os.walk(captures) for name in sorted(names) if ".pcap" in name]
    good = [path for path in found if subprocess.run(["capinfos", path], capture_output=True).returncode == 0]
    if not good:
        return
    run("mergecap", "-a", "-F", "pcapng", "-w", folder + "/merged", *good)
    for name, number in LINKS.items():
        path = f"{folder}/{name}"
        run("tshark", "-r", folder + "/merged", "-Y", f"frame.encap_type=={number}", "-w", path + ".part")
        run("editcap", "-F", "pcap", "-T", name, path + ".part", path)
        with open(path, "r+b") as file:  # libpcap cuts off what exceeds the snapshot length
            file.seek(16)
            file.write(b"\xff\xff\x03\0")
        yield path


class Shown:
    """A frame as tshark shows it, in the columns of the tool, for the outermost headers."""

    STACK = re.compile(r"(eth|sll|null|raw)((:ethertype|:vlan|:ieee8021ad)*)(?::(arp|ip|ipv6)((?::ipv6\.\w+|:ah|:mipv6|"
                       r":hip|:shim6)*)(?::(tcp|udp|icmp|icmpv6|igmp)\b(:rtp)?)?)?(?=:|$)")

    def __init__(self, row):
        self.row = row
        self.values = {}
        self.skipped = {"flaw", ""}
        found = self.STACK.match(row["frame.protocols"])
        self.tags, self.network, self.transport, self.has_rtp = "", "", "", False
        if found:
            self.tags, self.network, self.transport = found[2], found[4] or "", found[6] or ""
            self.has_rtp = bool(found[7])
            self.fill()

    def first(self, name):
        return self.row[name].split(",")[0]

    def take(self, column, *names):
        value = next((self.first(name) for name in names if self.row[name]), "")
        if value:
            self.values[column] = str(int(value, 0)) if re.fullmatch(r"\d+|0x[0-9a-f]+", value) else value

    def take_all(self, column, *names):
        value = next((self.row[name] for name in names if self.row[name]), "")
        self.values[column] = value

    def fill(self):
        self.values["network"], self.values["transport"] = self.network, self.transport
        self.fill_link()
        if not self.is_whole():  # tshark shows what is there of a header, and a list, that is cut off
            self.skipped |= {"payload", "group.acts", "group.source_counts", "group.addresses", "group.sources"}
            self.skipped |= {"proto"} if not self.transport else set()
        if self.row.get(self.network + ".src"):
            self.fill_ip()
            getattr(self, "fill_" + self.transport, lambda: None)()

    def fill_link(self):
        # tshark has a list for each kind of tag. Only the order of them is in the protocols.
        tags = [tag for tag in self.tags.split(":") if tag in ("vlan", "ieee8021ad")]
        for column, field in (("vlan", "id"), ("priority", "priority")):
            left = {kind: self.row[f"{kind}.{field}"].split(",") for kind in tags}
            self.values[column] = ",".join(left[tag].pop(0) for tag in tags if left[tag])
        if not self.network:  # tshark shows what is there of a tag that is cut off
            self.skipped |= {"vlan", "priority"}
        if tags or not (self.row["eth.type"] or self.row["eth.len"] or self.row["sll.etype"]):
            self.skipped.add("type")  # tshark does not show it for every kind of tag
        else:
            self.take("type", "eth.type", "eth.len", "sll.etype")

    def fill_ip(self):
        kind = self.network
        self.take("src", kind + ".src")
        self.take("dst", *(["ip.cur_rt"] if kind == "ip" else []), kind + ".dst")
        self.take("hops", "ip.ttl" if kind == "ip" else "ipv6.hlim")
        self.take("mf", "ip.flags.mf", "ipv6.fraghdr.more")
        self.values.setdefault("mf", "0")
        self.take("offset", "ip.frag_offset", "ipv6.fraghdr.offset")
        self.values["offset"] = str(8 * int(self.values.get("offset", "0")))
        if kind == "ip":
            for column, name in (("proto", "ip.proto"), ("ip.id", "ip.id"), ("ip.flags.df", "ip.flags.df"),
                                 ("ip.checksum.status", "ip.checksum.status")):
                self.take(column, name)
            return
        left = {number: self.row[name].split(",") for number, name in EXTENSIONS.items() if self.row[name]}
        protocol = self.first("ipv6.nxt")
        while left.get(protocol):
            protocol = left[protocol].pop(0)
        self.values["proto"] = protocol
        self.take("fraghdr.ident", "ipv6.fraghdr.ident")

    def is_whole(self):
        """Whether all headers are there and do not contradict each other. An interface segments a packet without a
        length."""
        return not (self.row["_ws.malformed"] or self.row["frame.len"] != self.row["frame.cap_len"] or
                    self.has_wrong_length() or self.row["ip.len"] == "0" or
                    self.row.get(self.network + ".src") == "" or self.row["eth.type"] == "0x8035" or
                    (self.transport == "tcp" and self.row["ip.len"] and
                     int(self.first("ip.len")) < int(self.first("ip.hdr_len")) + 20))

    def has_wrong_length(self):
        return re.search(r"ogus|ength", self.row["_ws.expert.message"]) is not None

    def is_fragment(self):
        return self.first("ip.flags.mf") == "1" or self.first("ipv6.fraghdr.more") == "1"

    def fill_ports(self, kind):
        self.take("srcport", kind + ".srcport")
        self.take("dstport", kind + ".dstport")
        self.take("checksum.status", kind + ".checksum.status")

    def fill_tcp(self):
        self.fill_ports("tcp")
        if self.is_fragment():
            self.skipped.add("payload")
        else:
            self.take("payload", "tcp.len")
        for name in FIELDS:
            if name.startswith("tcp.options"):
                self.take_all(name, name)
            elif name in ("tcp.seq_raw", "tcp.ack_raw", "tcp.flags", "tcp.window_size_value", "tcp.urgent_pointer"):
                self.take(name, name)
        if "tcp.options.sack_perm" in self.values and self.values["tcp.options.sack_perm"]:
            self.values["tcp.options.sack_perm"] = "1"

    def fill_udp(self):
        self.fill_ports("udp")
        if self.is_fragment() or self.has_wrong_length():
            self.skipped.add("payload")
        else:
            self.values["payload"] = str(int(self.first("udp.length") or "8") - 8)
        # tshark takes some for RTCP, and shows a header without a payload whose lengths do not fit.
        if not self.has_rtp or self.row["rtp.version"] != "2" or not self.row["rtp.payload"] or not self.is_whole():
            self.skipped |= {"rtp.marker", "rtp.p_type", "rtp.seq", "rtp.timestamp", "rtp.ssrc", "rtp.payload"}
        else:
            if self.is_fragment():
                self.skipped.add("rtp.payload")  # the size of the padding is in another one
            for name in ("rtp.marker", "rtp.p_type", "rtp.seq", "rtp.timestamp", "rtp.ssrc"):
                self.take(name, name)
            self.values["rtp.payload"] = str(len(self.first("rtp.payload").replace(":", "")) // 2)

    def fill_icmp(self):
        self.take("checksum.status", "icmp.checksum.status")
        for name in ("icmp.type", "icmp.code"):
            self.take(name, name)
        if self.first("icmp.type") in "0 8":
            self.take("icmp.ident", "icmp.ident")
            self.take("icmp.seq", "icmp.seq")
        self.take("icmp.target", "icmp.redir_gw")
        self.take("icmp.mtu", "icmp.mtu")

    def fill_icmpv6(self):
        self.take("checksum.status", "icmpv6.checksum.status")
        self.take("icmp.type", "icmpv6.type")
        self.take("icmp.code", "icmpv6.code")
        self.take("icmp.ident", "icmpv6.echo.identifier")
        self.take("icmp.seq", "icmpv6.echo.sequence_number")
        self.take("icmp.mtu", "icmpv6.mtu")
        self.take("icmp.target", *(f"icmpv6.nd.{kind}.target_address" for kind in ("ns", "na", "rd")))
        if self.first("icmpv6.type") == "143":
            self.fill_records("icmpv6.mldr.mar.record_type", "icmpv6.mldr.mar.multicast_address",
                              "icmpv6.mldr.mar.nb_sources", "icmpv6.mldr.mar.source_address")
        elif self.first("icmpv6.type") in ("130", "131", "132"):
            self.values["group.acts"] = {"130": "0", "131": "1", "132": "2"}[self.first("icmpv6.type")]
            self.take("group.addresses", "icmpv6.mld.multicast_address")
            self.values["group.source_counts"] = self.row["icmpv6.mld.nb_sources"] or "0"
            self.take_all("group.sources", "icmpv6.mld.source_address")

    def fill_igmp(self):
        kinds = {"0x11": "0", "0x12": "1", "0x16": "1", "0x17": "2"}
        kind = self.first("igmp.type")
        self.take("checksum.status", "igmp.checksum.status")
        self.take("group.version", "igmp.version")
        if kind == "0x22":
            self.fill_records("igmp.record_type", "igmp.maddr", "igmp.num_src", "igmp.saddr")
        elif kind in kinds:
            self.values["group.acts"] = kinds[kind]
            self.values["group.addresses"] = self.row["igmp.maddr"]
            self.values["group.source_counts"] = self.row["igmp.num_src"] or "0"
            self.take_all("group.sources", "igmp.saddr")

    def fill_records(self, kinds, groups, counts, sources):
        self.values["group.acts"] = ",".join(str(int(kind) + 2) for kind in self.row[kinds].split(",") if kind)
        self.take_all("group.addresses", groups)
        self.take_all("group.source_counts", counts)
        self.take_all("group.sources", sources)


def main(program, least_frames, least_values):
    frames = values = wrong = 0
    with tempfile.TemporaryDirectory() as folder:
        configure(folder)
        for path in files(folder):
            shown, decoded = tshark(path), rows(run(program, path))
            assert len(shown) == len(decoded), (path, len(shown), len(decoded))
            for number, (row, ours) in enumerate(zip(shown, decoded), 1):
                theirs = Shown(row)
                is_whole = theirs.is_whole()
                names = (set(theirs.values) | {name for name, value in ours.items() if value}) - theirs.skipped
                frames += 1
                for name in names:
                    left, right = theirs.values.get(name, ""), ours[name]
                    if not is_whole and not (left and right):
                        continue
                    values += 1
                    if left != right and not ("checksum" in name and left in ("", "2", "3")):
                        wrong += 1
                        print(f"{os.path.basename(path)} frame {number}: {name} is '{left}', but '{right}' here; "
                              f"{row['frame.protocols']} whole={is_whole} flaw={ours['flaw']}")
    print(f"{frames} frames and {values} values compared, {wrong} differ")
    return wrong > 0 or frames < int(least_frames) or values < int(least_values)


if __name__ == "__main__":
    if not shutil.which("tshark"):
        print("skipped: no tshark")
        sys.exit(77)
    sys.exit(main(*sys.argv[1:]))
