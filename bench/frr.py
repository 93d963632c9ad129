#!/usr/bin/env python3
"""What frr.sh asks: when the last of FRR's routes is there, and what came of all rounds."""
import os
import socket
import statistics
import struct
import sys
import time

sys.path.insert(0, f"{os.path.dirname(os.path.abspath(__file__))}/../tests/live")
from client import Operator  # noqa: E402

SECONDS = 60


def velad(work, count):
    """When all routes had their place in the switch, but those that there is no room for."""
    operator = Operator(f"{work}/control")
    end = time.time() + SECONDS
    while time.time() < end:
        status = operator.ask({"request": "status"})[0]
        there = status["programmed"] + status["waiting"]
        if there == count and not status["queued"]:
            return time.time()
        time.sleep(0.005)
    raise SystemExit(f"{there} of {count} routes in the switch")


def drop(_, count):
    """When the last route was read, of all of which nothing is kept but which they were."""
    seen = set()
    left = b""
    with socket.create_server(("127.0.0.1", 2620)) as listener:
        listener.settimeout(SECONDS)
        with listener.accept()[0] as peer:
            peer.settimeout(SECONDS)
            while len(seen) < count and (data := peer.recv(1 << 18)):
                left += data
                at = 0
                while len(left) - at >= 4 and len(left) - at >= (size := struct.unpack_from("!H", left, at + 2)[0]):
                    # An IPv4 route that is announced: its length and address.
                    if left[at + 8] == 24 and left[at + 20] == socket.AF_INET:
                        seen.add((left[at + 21], left[at + 36:at + 40]))
                    at += size
                left = left[at:]
    if len(seen) < count:
        raise SystemExit(f"{len(seen)} of {count} routes read")
    return time.time()


def wait(listener, work, count):
    """Prints when the last route was there."""
    print({"velad": velad, "drop": drop}[listener](work, int(count)))


def summary(file, count):
    """Medians of lines that have a listener, when FRR was started, and what `wait` printed; and their ratio."""
    rounds = {"velad": [], "drop": []}
    for line in open(file):
        listener, begin, end = line.split()
        rounds[listener].append(float(end) - float(begin))
    medians = {listener: statistics.median(each) for listener, each in rounds.items()}
    for listener, where in ("velad", "in velad's switch"), ("drop", "at a listener that drops them"):
        seconds = medians[listener]
        print(f"{count} routes of FRR are {where} {seconds:.2f} s after its start, {int(count) / seconds:.0f} a second "
              f"(median of {len(rounds[listener])}, {min(rounds[listener]):.2f} to {max(rounds[listener]):.2f})")
    print(f"ratio {medians['velad'] / medians['drop']:.3f}")


if __name__ == "__main__":
    globals()[sys.argv[1]](*sys.argv[2:])
