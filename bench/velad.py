#!/usr/bin/env python3
"""How long velad takes for a change of a route, from the client that tells it until that hears that registers
have it (fpm.offload), at several changes a second; and for many routes at once, beside a listener that drops
them. velad.py VELAD."""
import os
import random
import socket
import struct
import sys
import threading
import time

sys.path.insert(0, f"{os.path.dirname(os.path.abspath(__file__))}/../tests/live")
from client import PORT, route, run  # noqa: E402

RATES = 1000, 20000
SECONDS = 5
ROUTES = 20000
OFFLOAD = 0x4000


def prefixes():
    """In the shape of a real table: most are /24, and what is longer than others is covered by them."""
    rng = random.Random(1)
    lengths = [24] * 24 + [23] * 6 + [22] * 8 + [21] * 4 + [20] * 4 + [19] * 3 + [18] * 2 + [17] * 2 + [16]
    found = set()
    while len(found) < ROUTES:
        length = rng.choice(lengths)
        found.add((0x14000000 | rng.getrandbits(26) >> 32 - length << 32 - length, length))
    return sorted(found)


class Answers(threading.Thread):
    """When each of a client's routes was last said to be in hardware."""

    def __init__(self, peer):
        super().__init__(daemon=True)
        self.peer = peer
        self.heard = {}
        self.answers = 0
        self.listener = None
        self.start()

    def run(self):
        left = b""
        while data := self.peer.recv(1 << 18):
            now = time.perf_counter()
            left += data
            at = 0
            while len(left) - at >= 4 and len(left) - at >= (size := struct.unpack_from("!H", left, at + 2)[0]):
                key = struct.unpack_from("!I", left, at + 36)[0], left[at + 21]
                if struct.unpack_from("=I", left, at + 28)[0] & OFFLOAD and self.listener:
                    self.listener(key, now)
                self.answers += 1
                at += size
            left = left[at:]

    def wait(self, count):
        while self.answers < count:
            time.sleep(0.005)


def changes(peer, answers, rate, there):
    """Next hops change, some each millisecond; prints percentiles of the time until the answer."""
    rng = random.Random(2)
    sent, took, gateways = {}, [], {}

    def heard(key, now):
        began = sent.pop(key, None)
        if began:
            took.append(now - began)
    answers.listener = heard
    begin = time.perf_counter()
    done, skipped = 0, 0
    while (now := time.perf_counter()) < begin + SECONDS:
        frames = []
        while done + skipped < (now - begin) * rate:
            key = rng.choice(there)
            # One that is under way would be merged with this.
            if key in sent:
                skipped += 1
                continue
            gone = route(*key, withdrawn=True)
            gateways[key] = (gateways.get(key, 0) + rng.randrange(1, 60)) % 60
            new = route(*key, gateway=bytes([10, 0, 1, gateways[key]]))
            frames.append(struct.pack("!BBH", 1, 1, len(gone) + len(new) - 4) + gone[4:] + new[4:])
            sent[key] = time.perf_counter()
            done += 1
        if frames:
            peer.sendall(b"".join(frames))
        time.sleep(0.0005)
    time.sleep(1)
    answers.listener = None
    took.sort()
    print(f"{done / SECONDS:.0f} changes a second: p50 {1000 * took[len(took) // 2]:.2f} ms, "
          f"p99 {1000 * took[len(took) * 99 // 100]:.2f} ms")


def drop(listener):
    with listener.accept()[0] as peer:
        while peer.recv(1 << 18):
            pass


def main(velad):
    there = prefixes()
    frames = b"".join(route(*each, gateway=bytes([10, 0, 0, 1 + each[0] % 50])) for each in there)
    with socket.create_server(("127.0.0.1", 0)) as listener:
        dropping = threading.Thread(target=drop, args=(listener,))
        dropping.start()
        begin = time.perf_counter()
        with socket.create_connection(listener.getsockname()) as peer:
            peer.sendall(frames)
        dropping.join()
        dropped = time.perf_counter() - begin
    peer = socket.create_connection(("127.0.0.1", PORT))
    answers = Answers(peer)
    last = [0]
    answers.listener = lambda _, now: last.__setitem__(0, now)
    begin = time.perf_counter()
    peer.sendall(frames)
    answers.wait(len(there))
    seconds = last[0] - begin
    status = velad.status()
    print(f"{len(there)} routes, {status['programmed']} of them programmed: {len(there) / seconds:.0f} a second "
          f"until the last row and its answer; {len(there) / dropped:.0f} to a listener that drops them")
    listed = velad.ask({"request": "status", "refused": True})[1:]
    waiting = {line["route"] for line in listed}
    there = [each for each in there if f"{socket.inet_ntoa(struct.pack('!I', each[0]))}/{each[1]}" not in waiting]
    for rate in RATES:
        changes(peer, answers, rate, there)


if __name__ == "__main__":
    run(main, offload=True)
