#!/usr/bin/env python3
"""Runs a relay as a server for some minutes: soak.py MINUTES RELAY SAMPLE

The relay has ten channels. Sources send the sample again and again at fixed rates. Each packet contains a
number and a checksum. Clients of the first channel read everything, read the past, stall, vanish and send
garbage. Each of the others has a client that reads it by HTTP. One channel has a backup input, which its
main input leaves to itself from time to time. One changes with every reload of the configuration. Meanwhile
workers are killed, the log is moved away, and its disk is full for a while. Every client checks the data
that it gets. The processes are measured once a second. Prints a table. The exit code is 1 if a row does not
hold.
"""
import collections
import json
import os
import random
import re
import shutil
import signal
import socket
import statistics
import struct
import subprocess
import sys
import tempfile
import threading
import time
import urllib.request
import zlib

PACKET = 188
PER_MESSAGE = 7
RATE = 8_000_000 // 8 // PACKET  # packets a second
SMALL_RATE = RATE // 16  # of each of the other channels
STEADY = [f"steady{i}" for i in range(1, 8)]  # channels that never change; "spare" and "changing" are the others
PAUSE, PERIOD = 5, 30  # the main input of "spare" is silent for PAUSE seconds in each PERIOD
KEEP = 10  # seconds that the store keeps
SHIFT = 5  # seconds back that a client asks for
STALL = 12  # seconds until a client that accepts no data is disconnected
BACK = 4  # seconds that the restart of a killed worker may take; the watchdog checks once a second
LINE = re.compile(rb"\[[-0-9]{10} [:0-9]{8}\.\d{3}\]\[(ERROR|WARN|NOTICE|INFO)\]\[[A-Z_0-9]+\][^\r\n]+")
LOST = re.compile(rb"\[ZXLOG\](\d+) lines could not be written$")

# The memory of a worker varies by the part of the stream that it keeps for the slowest client, and by the
# buffers of the channel that is being changed; the number of its descriptors varies by the clients that are
# just connected. A leak is larger.
MEMORY_SLACK_KB = 6144
DESCRIPTOR_SLACK = 4


class Checker:
    """Takes a stream in pieces and counts missing, duplicated and torn packets."""

    def __init__(self):
        self.rest, self.first, self.last = b"", None, None
        self.packets = self.missing = self.torn = self.jumps_back = 0

    def feed(self, data):
        data = self.rest + data
        end = len(data) // PACKET * PACKET
        for at in range(0, end, PACKET):
            number, check = struct.unpack_from(">QI", data, at + PACKET - 12)
            if data[at] != 0x47 or zlib.crc32(data[at : at + PACKET - 4]) != check:
                self.torn += 1
                continue
            if self.first is None:
                self.first = number
            elif number <= self.last:
                self.jumps_back += 1
            else:
                self.missing += number - self.last - 1
            self.last = number
        self.packets += end // PACKET
        self.rest = data[end:]


class Soak:
    def __init__(self, minutes, relay, sample):
        self.end = 60.0 * minutes
        self.relay, self.sample = os.path.abspath(relay), open(sample, "rb").read()
        self.work = tempfile.mkdtemp(prefix="soak.")
        self.disk = os.path.join(self.work, "disk")
        self.log = os.path.join(self.disk, "log")
        self.config = os.path.join(self.work, "relay.toml")
        self.rotated = []
        self.is_mounted = False
        self.in_port, self.out_port, self.status_port = (self.free_port() for _ in range(3))
        self.udp_ports = {name: self.free_port() for name in STEADY + ["changing", "spare", "backup"]}
        self.reloads = 0
        self.watchdog = None
        self.stopping = threading.Event()
        self.lock = threading.Lock()
        self.counts = collections.Counter()
        self.failures = []
        self.kills, self.restarts_ms, self.full_times = [], [], []  # seconds; ms; seconds
        self.connected = []  # seconds
        self.dropped = {}  # messages, by the client's address
        self.samples = collections.defaultdict(list)  # by process
        self.start = time.monotonic()

    # ---- used everywhere

    @staticmethod
    def free_port():
        with socket.socket() as s:
            s.bind(("127.0.0.1", 0))
            return s.getsockname()[1]

    def now(self):
        return time.monotonic() - self.start

    def count(self, **numbers):
        with self.lock:
            self.counts.update(numbers)

    def fail(self, text):
        with self.lock:
            self.failures.append(text)
            print(f"{self.now():7.1f} s  FAILED: {text}", flush=True)

    def worker(self):
        pid = self.watchdog.pid
        try:
            with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as children:
                return int(next(iter(children.read().split()), 0))
        except OSError:
            return 0

    def note_drops(self):
        """Stores the drops that the relay has counted for each of its clients."""
        try:
            url = f"http://127.0.0.1:{self.status_port}/live.json"
            with urllib.request.urlopen(url, timeout=5) as answer:
                for client in json.load(answer)["clients"]:
                    self.dropped[client["address"]] = client["dropped_messages"]
        except (OSError, ValueError):
            pass  # no worker at the moment

    def was_killed(self, since):
        return self.stopping.is_set() or any(moment >= since - 0.5 for moment in self.kills)

    def expect_open(self, is_open, since):
        if not is_open and not self.was_killed(since):
            self.fail("a connection ended though nobody killed a worker")

    # ---- the source

    def send_stream(self):
        number = 0
        while not self.stopping.is_set():
            begin, first = time.monotonic(), number
            try:
                with socket.create_connection(("127.0.0.1", self.in_port), timeout=5) as s:
                    while not self.stopping.is_set():
                        due = first + int((time.monotonic() - begin) * RATE)
                        burst = bytearray()
                        for number in range(number, max(due, number)):
                            burst += self.make_packet(number)
                            if number % (10 * RATE) == 0:
                                burst += bytes(99)  # not a packet: the relay must leave it out
                        number = max(due, number)
                        s.sendall(burst)
                        time.sleep(0.01)
            except OSError:
                time.sleep(0.05)
        self.count(packets_sent=number)

    def make_packet(self, number):
        """The packet of the sample that has its turn, with the number and a checksum at its end."""
        at = number * PACKET % len(self.sample)
        packet = self.sample[at : at + PACKET - 12] + struct.pack(">Q", number)
        return packet + struct.pack(">I", zlib.crc32(packet))

    def send_datagrams(self):
        """Sends one stream to all channels but the first one."""
        begin, number = time.monotonic(), 0
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as s:
            while not self.stopping.is_set():
                while number + PER_MESSAGE <= (time.monotonic() - begin) * SMALL_RATE:
                    datagram = b"".join(self.make_packet(number + i) for i in range(PER_MESSAGE))
                    number += PER_MESSAGE
                    is_paused = self.now() % PERIOD > PERIOD - PAUSE
                    for name, port in self.udp_ports.items():
                        if name != "spare" or not is_paused:
                            s.sendto(datagram, ("127.0.0.1", port))
                time.sleep(0.01)
        self.count(small_packets_sent=number)

    # ---- the clients; each turn is one connection

    def connect(self, receive_buffer=0):
        s = socket.socket()
        if receive_buffer:
            s.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        s.settimeout(BACK + 2)
        s.connect(("127.0.0.1", self.out_port))
        return s

    def receive(self, s, checker, seconds=1e9):
        """Reads for some seconds. Returns false if the connection ended."""
        end = time.monotonic() + seconds
        while time.monotonic() < end and not self.stopping.is_set():
            try:
                data = s.recv(1 << 16)
            except ConnectionError:
                return False
            except socket.timeout:
                if not self.stopping.is_set():
                    self.fail("a client got nothing")
                return False
            if not data:
                return False
            if checker.packets == 0 and not checker.rest:
                self.connected.append(self.now())
            checker.feed(data)
        return True

    def judge(self, kind, checker, s, jumps_back=0):
        """Compares what a connection received with the drops that the relay has counted for it."""
        self.count(**{f"{kind} packets": checker.packets, f"{kind} turns": 1})
        address = "%s:%d" % s.getsockname()
        if checker.missing:
            self.note_drops()
        allowed = self.dropped.pop(address, 0) * PER_MESSAGE
        self.count(**{f"{kind} missing": checker.missing, f"{kind} counted": allowed})
        if checker.torn or checker.jumps_back > jumps_back or checker.missing > allowed:
            self.fail(f"{kind} {address}: {checker.torn} torn, {checker.jumps_back} jumps back, "
                      f"{checker.missing} missing of {checker.packets}, {allowed} counted as dropped")

    def read_all(self):
        last = None
        while not self.stopping.is_set():
            with self.connect() as s:
                begin, checker = self.now(), Checker()
                self.expect_open(self.receive(s, checker), begin)
                self.judge("reader", checker, s)
            if checker.first is not None:
                gap = checker.first - last - 1 if last is not None else 0
                self.count(**{"gaps of kills": gap})
                if not 0 <= gap <= BACK * RATE:
                    self.fail(f"{gap} packets missing between two workers")
                last = checker.last

    def ask(self, s, name):
        """Asks for a channel by HTTP. Returns what has come of its stream, or None if there is none."""
        s.sendall(b"GET /%s HTTP/1.1\r\nHost: relay\r\n\r\n" % name.encode())
        answer = b""
        while b"\r\n\r\n" not in answer:
            data = s.recv(1 << 12)
            if not data:
                return None
            answer += data
        return answer.partition(b"\r\n\r\n")[2] if answer.startswith(b"HTTP/1.1 200 ") else None

    def channel_reader(self, name):
        """Makes a turn that reads the channel until its connection ends, and compares it with the turn before."""
        is_steady, last = name in STEADY, None

        def read_channel():
            nonlocal last
            with self.connect() as s:
                begin, checker = self.now(), Checker()
                data = self.ask(s, name)
                if data is None:
                    self.expect_open(name == "changing", begin)
                    time.sleep(0.05)
                    return
                checker.feed(data)
                is_open = self.receive(s, checker)
                self.count(**{f"{name} turns": 1})
                self.expect_open(is_open or name == "changing", begin)
                if is_steady:
                    self.judge("steady", checker, s)
                elif checker.torn:
                    self.fail(f"{name}: {checker.torn} torn packets")
                else:
                    self.count(**{f"{name} packets": checker.packets})
            if is_steady and checker.first is not None:
                gap = checker.first - last - 1 if last is not None else 0
                self.count(**{"steady gaps of kills": gap})
                if not 0 <= gap <= BACK * SMALL_RATE:
                    self.fail(f"{name}: {gap} packets missing between two workers")
                last = checker.last

        return read_channel

    def read_past(self):
        with self.connect() as s:
            begin, checker = self.now(), Checker()
            self.receive(s, checker, 0.5)
            s.sendall(b"last %d\n" % SHIFT)
            self.expect_open(self.receive(s, checker, 3 * SHIFT), begin)
            self.judge("shifted", checker, s, jumps_back=1)
            self.count(**{"shifted jumps": checker.jumps_back})

    def stall(self):
        with self.connect(receive_buffer=16384) as s:
            begin, checker = self.now(), Checker()
            self.receive(s, checker, 1)
            self.stopping.wait(STALL - 3)
            is_open = self.receive(s, checker, 4)  # until everything is read and the relay has published its counts
            self.expect_open(is_open, begin)
            if is_open:
                self.judge("staller", checker, s)

    def stop_reading(self):
        with self.connect(receive_buffer=16384) as s:
            checker = Checker()
            self.receive(s, checker, 1)
            self.stopping.wait(2 * STALL)
            if not self.receive(s, checker, 5):
                self.count(**{"dead ones disconnected": 1})
            elif not self.stopping.is_set():
                self.fail("a client that accepts no data was not disconnected")

    def vanish(self):
        with self.connect() as s:
            self.receive(s, Checker(), random.uniform(0.01, 0.3))
            if random.random() < 0.5:  # with a reset
                s.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.count(vanished=1)

    def send_garbage(self):
        with self.connect() as s:
            words = [b"last 99999999999999999999\n", b"last -1\r\n", random.randbytes(9000), b"\n" * 99]
            s.sendall(random.choice(words))
            self.receive(s, Checker(), 0.3)
        with socket.create_connection(("127.0.0.1", self.status_port), timeout=5) as s:
            s.sendall(random.choice([b"GET / HTTP/9\r\n\r\n", random.randbytes(3000), b"\0" * 50]))
        self.count(**{"garbage turns": 1})
        time.sleep(0.2)

    def play(self, turn):
        """Runs one turn after the other. A turn may fail while a worker is being replaced."""
        while not self.stopping.is_set():
            begin = self.now() - BACK
            try:
                turn()
            except OSError as error:
                if not self.was_killed(begin):
                    self.fail(f"{turn.__name__}: {error}")
                time.sleep(0.1)
            except Exception as error:  # a fault of this program must be noticed
                self.fail(f"{turn.__name__}: {error!r}")
                time.sleep(1)

    # ---- the events

    def kill_worker(self):
        before, begin = self.worker(), self.now()
        self.kills.append(begin)
        os.kill(before, signal.SIGKILL)
        while self.worker() in (0, before) and self.now() < begin + 3 * BACK:
            time.sleep(0.01)
        self.restarts_ms.append(int((self.now() - begin) * 1000))

    def write_channels(self):
        """Each time, the channel "changing" keeps another part of its stream, and its place is another one."""
        first = [("stream", f"tcp://127.0.0.1:{self.in_port}", f"keep = {KEEP}")]
        ports = self.udp_ports
        others = [(name, f"udp://127.0.0.1:{ports[name]}", "") for name in STEADY]
        others.append(("spare", f"udp://127.0.0.1:{ports['spare']}", f'backup = "udp://127.0.0.1:{ports["backup"]}"'))
        changing = ("changing", f"udp://127.0.0.1:{ports['changing']}", f"keep = {5 + self.reloads % 2}")
        others.insert(self.reloads % len(others), changing)
        with open(self.config + ".new", "w", encoding="ascii") as file:
            for name, url, more in first + others:
                file.write(f'[[channel]]\nname = "{name}"\ninput = "{url}"\n{more}\n')
        os.rename(self.config + ".new", self.config)

    def reload(self):
        self.reloads += 1
        self.write_channels()
        self.watchdog.send_signal(signal.SIGHUP)

    def rotate(self):
        path = os.path.join(self.disk, f"log.{len(self.rotated)}")
        try:
            os.rename(self.log, path)
        except FileNotFoundError:
            return  # nothing was logged since the last rotation
        self.rotated.append(path)
        if len(self.rotated) > 1:  # nobody writes to the previous one any more
            self.rotated[-2] = shutil.move(self.rotated[-2], self.work)

    def fill_disk(self):
        filler = os.path.join(self.disk, "filler")
        self.full_times.append(self.now())
        while self.now() < self.full_times[-1] + min(20, self.end / 10) and not self.stopping.is_set():
            try:  # repeatedly, because a rotation frees space
                with open(filler, "ab", buffering=0) as file:
                    while file.write(bytes(512)):
                        pass
            except OSError:
                time.sleep(0.1)
        os.remove(filler)

    def events(self):
        """Returns (second, function) pairs in order. Growth is judged between the kills."""
        is_long = self.end >= 600
        plan = [(0.1, self.kill_worker), (0.2, self.kill_worker)] + [(0.6, self.kill_worker)] * is_long
        if self.is_mounted:
            plan += [(0.3, self.fill_disk)] + [(0.7, self.fill_disk)] * is_long
        plan = [(part * self.end, what) for part, what in plan]
        plan += [(second, self.rotate) for second in range(5, int(self.end), 12)]
        plan += [(second, self.reload) for second in range(9, int(self.end), 10)]
        return sorted(plan, key=lambda event: event[0])

    def measure(self, pid):
        try:
            with open(f"/proc/{pid}/status", encoding="ascii") as file:
                fields = dict(line.split(":", 1) for line in file)
            descriptors = len(os.listdir(f"/proc/{pid}/fd"))
            memory, threads = int(fields["VmRSS"].split()[0]), int(fields["Threads"])
            self.samples[pid].append((self.now(), memory, descriptors, threads))
        except (OSError, KeyError):
            pass  # it has just ended

    # ---- the run

    def set_up(self):
        os.mkdir(self.disk)
        if os.geteuid() == 0:
            mount = ["mount", "-t", "tmpfs", "-o", "size=512k", "soak", self.disk]
            self.is_mounted = subprocess.run(mount, check=False).returncode == 0
        if not self.is_mounted:
            print("not run as root, so nothing can be mounted: the full disk is left out")
        self.write_channels()
        local = "127.0.0.1:"
        self.watchdog = subprocess.Popen(
            [self.relay, "--watchdog", "--config", self.config, "--output", f"{local}{self.out_port}",
             "--status", f"{local}{self.status_port}", "--stall", str(STALL), "--log", self.log,
             "--log-level", "4", "--pid-file", os.path.join(self.work, "pid")])
        while not os.path.exists(self.log) or b"relaying" not in open(self.log, "rb").read():
            if self.watchdog.poll() is not None:
                sys.exit("the relay does not start")
            time.sleep(0.05)

    def run(self):
        self.start = time.monotonic()
        turns = [self.read_all] * 3 + [self.read_past, self.stall, self.stop_reading, self.vanish,
                                       self.send_garbage]
        turns += [self.channel_reader(name) for name in STEADY + ["changing", "spare"]]
        threads = [threading.Thread(target=send) for send in (self.send_stream, self.send_datagrams)]
        threads += [threading.Thread(target=self.play, args=(turn,)) for turn in turns]
        for thread in threads:
            thread.start()
        events = self.events()
        try:
            while self.now() < self.end and self.watchdog.poll() is None:
                while events and events[0][0] <= self.now():
                    threads.append(threading.Thread(target=events.pop(0)[1]))
                    threads[-1].start()
                for pid in (self.watchdog.pid, self.worker()):
                    self.measure(pid)
                self.note_drops()
                time.sleep(max(0.0, 1 - time.monotonic() % 1))
        finally:
            self.stopping.set()
            for thread in threads:
                thread.join()

    def tear_down(self):
        """Ends the relay and removes everything except the log."""
        if self.watchdog:
            self.watchdog.terminate()
            try:
                self.watchdog.wait(15)
            except subprocess.TimeoutExpired:
                self.fail("the relay did not end")
                self.watchdog.kill()  # the worker ends, too
                self.watchdog.wait()
        for path in self.rotated[-1:] + [self.log]:
            if os.path.exists(path):
                shutil.move(path, self.work)
        if self.is_mounted:
            subprocess.run(["umount", self.disk], check=True)

    # ---- the judgement

    def judge_log(self):
        """Checks the lines of the log: whole ones, those that the full disk cut, and those counted as lost."""
        lines, names = [], [f"log.{i}" for i in range(len(self.rotated))] + ["log"]
        for name in names:
            with open(os.path.join(self.work, name), "rb") as file:
                *whole, rest = file.read().split(b"\r\n")
            lines += whole + [rest + b"<no end>\r"] * bool(rest)
        cut = [i for i, line in enumerate(lines) if not LINE.fullmatch(line)]
        reported = sum(1 for i in cut if LOST.search(b"".join(lines[i + 1 : i + 2])))
        lost = sum(int(found[1]) for found in map(LOST.search, lines) if found)
        connected = sum(1 for line in lines if b"]client " in line and line.endswith(b" has connected"))
        unlogged = re.compile(rb"(\d+) more clients have connected in the last minute")
        connected += sum(int(found[1]) for found in map(unlogged.search, lines) if found)
        missing = max(0, len(self.connected) - connected)
        # A worker logs once a minute how many more clients have connected. One that is killed does not.
        unsaid = sum(any(kill - 62 < moment <= kill + 1 for kill in self.kills) for moment in self.connected)
        freed = [line for line in lines if b"Toal memry leak:" in line]
        return [
            ("log files, lines", f"{len(names)}, {len(lines)}", "", True),
            ("lines cut by the full disk", len(cut), f"followed by a report of lost lines: {reported}",
             len(cut) == reported),
            ("lines lost, according to the log", lost, "above 0 when the disk was full",
             (lost > 0) == bool(self.full_times)),
            ("connections without a log line", missing,
             f"lines lost, plus {unsaid} of the last minute before a kill", missing <= lost + unsaid),
            ("buffers in use at the end", freed[-1].split(b":")[-1].decode() if freed else "not logged",
             "0 byte", bool(freed) and freed[-1].endswith(b":0 byte")),
        ]

    def judge_flatness(self):
        """Compares the first third of a process's life with the last third, after two minutes."""
        rows = []
        for pid, samples in self.samples.items():
            name = "watchdog" if pid == self.watchdog.pid else f"worker {pid}"
            settled = [s for s in samples if s[0] >= max(120, samples[0][0] + 60)]
            if len(settled) < 50:
                continue
            third = len(settled) // 3
            for column, what, slack in ((1, "kB", MEMORY_SLACK_KB), (2, "descriptors", DESCRIPTOR_SLACK),
                                        (3, "threads", 0)):
                begin = statistics.median(s[column] for s in settled[:third])
                end = statistics.median(s[column] for s in settled[-third:])
                peak = max(s[column] for s in settled)
                rows.append((f"{name}, {len(settled)} s: {what}", f"{begin:g} → {end:g}, peak {peak}",
                             f"+{slack}", end <= begin + slack))
        return rows

    def judge_all(self):
        c, kills = self.counts, len(self.kills)
        rows = [
            ("packets sent", c["packets_sent"], "", c["packets_sent"] > self.end * RATE * 0.9),
            ("packets received by the three readers", c["reader packets"], "all but those lost after kills",
             c["reader packets"] + c["reader missing"] + c["gaps of kills"] > 2.9 * self.end * RATE * 0.9),
            ("packets missing for the three readers", c["reader missing"], f"counted as dropped: {c['reader counted']}",
             c["reader missing"] <= c["reader counted"]),
            ("packets lost after kills", c["gaps of kills"], f"{BACK} s for each reader and kill",
             c["gaps of kills"] <= 3 * kills * BACK * RATE),
            ("packets missing for clients that stalled", c["staller missing"], f"counted as dropped: {c['staller counted']}",
             0 < c["staller missing"] <= c["staller counted"]),
            ("packets received by shifted clients", c["shifted packets"], "at most one jump back each",
             0 < c["shifted jumps"] <= c["shifted turns"]),
            ("packets missing for shifted clients", c["shifted missing"], "0", c["shifted missing"] == 0),
            ("packets received by HTTP from the seven steady channels", c["steady packets"], "all but those lost after kills",
             c["steady packets"] + c["steady gaps of kills"] > 0.9 * len(STEADY) * c["small_packets_sent"]),
            ("packets missing in the steady channels", c["steady missing"], "0", c["steady missing"] == 0),
            ("packets of the steady channels lost after kills", c["steady gaps of kills"],
             f"{BACK} s for each channel and kill", c["steady gaps of kills"] <= len(STEADY) * kills * BACK * SMALL_RATE),
            ("reloads, turns of the channel that changes", f"{self.reloads}, {c['changing turns']}",
             "a turn for each reload", c["changing turns"] >= self.reloads > 0),
            ("packets received from the channel with a backup", c["spare packets"],
             "all but 3 s of each pause, and 4 s after each kill",
             c["spare packets"] > c["small_packets_sent"] - SMALL_RATE * (3 * self.end / PERIOD + BACK * (kills + 1))),
            ("disconnected clients that accepted no data", c["dead ones disconnected"], "", True),
            ("clients that vanished, clients that sent garbage", f"{c['vanished']}, {c['garbage turns']}", "",
             c["vanished"] > 0 and c["garbage turns"] > 0),
            ("workers killed, slowest restart", f"{kills}, {max(self.restarts_ms, default=0)} ms", f"{BACK} s",
             max(self.restarts_ms, default=0) < BACK * 1000),
            ("exit code of the relay", self.watchdog.returncode, "0", self.watchdog.returncode == 0),
        ]
        rows += self.judge_log() + self.judge_flatness()
        print("\n| what | seen | allowed | holds |\n|---|---|---|---|")
        for what, seen, allowed, holds in rows:
            print(f"| {what} | {seen} | {allowed} | {'yes' if holds else 'NO'} |")
        print(f"\n{len(self.failures)} failures")
        return not self.failures and all(row[3] for row in rows)


def main():
    minutes, relay, sample = float(sys.argv[1]), sys.argv[2], sys.argv[3]
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    soak = Soak(minutes, relay, sample)
    holds = False
    try:
        try:
            soak.set_up()
            soak.run()
        finally:
            soak.tear_down()
        holds = soak.judge_all()
    finally:
        if holds:
            shutil.rmtree(soak.work)
        else:
            print(f"the log is in {soak.work}")
    sys.exit(0 if holds else 1)


if __name__ == "__main__":
    main()
