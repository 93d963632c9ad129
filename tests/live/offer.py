#!/usr/bin/env python3
"""Offers velad many more routes than a switch holds, as a client of its forwarding plane manager's
port, and asks it how it does throughout. offer.py VELAD COUNT: fails where an answer takes long, memory
grows beyond what is allowed, or the routes that there is no room for are not told or do not come in."""
import ipaddress
import random
import socket
import statistics
import threading
import time

from client import PORT, Operator, fail, route, run

# Of a loaded machine: what nine of ten answers take at most, and what one may.
ANSWER_SECONDS = 0.1
LONGEST_SECONDS = 0.3
MEGABYTES = 100
BYTES_A_ROUTE = 400
# Of each length of prefixes, about what a whole table of the Internet has.
PERCENT = {24: 60, 23: 10, 22: 11, 21: 5, 20: 5, 19: 4, 18: 2, 17: 1, 16: 2}


class Pulse(threading.Thread):
    """Asks for little, again and again, and keeps how long it took, and the most memory in use."""

    def __init__(self, velad):
        super().__init__(daemon=True)
        self.velad = velad
        self.operator = Operator(velad.path)
        self.seconds = []
        self.memory = 0
        self.over = False
        self.start()

    def run(self):
        key = {"vrf": 0, "address": "20.0.0.1"}
        while not self.over:
            asked = time.time()
            self.operator.ask({"request": "lookup", "table": "Route", "keys": [key]})
            self.seconds.append(time.time() - asked)
            self.memory = max(self.memory, self.velad.memory())
            time.sleep(0.02)


def table(count):
    """Prefixes of many lengths that do not cover each other."""
    lengths = random.Random(1).choices(list(PERCENT), PERCENT.values(), k=count)
    address = 0x14000000
    for length in sorted(lengths):
        yield ipaddress.ip_network((address, length))
        address += 1 << (32 - length)


def rows(status):
    return sum(each["used"] for each in status["tables"])


def main(velad, count):
    count = int(count)
    empty = velad.memory()
    routes = list(table(count))
    random.Random(2).shuffle(routes)
    frames = b"".join(route(int(each.network_address), each.prefixlen, False) for each in routes)
    sender = socket.create_connection(("127.0.0.1", PORT))
    pulse = Pulse(velad)
    begin = time.time()
    sender.sendall(frames)
    while True:
        status = velad.ask({"request": "status"})[0]
        if status["sources"][0]["messages"] == len(routes) and not status["queued"]:
            break
        time.sleep(0.02)
    seconds = time.time() - begin
    asked = time.time()
    listed = velad.ask({"request": "status", "refused": True})
    whole = time.time() - asked
    used = max(pulse.memory, velad.memory())
    each_takes = (used - empty) / len(routes)
    print(f"    {len(routes)} routes offered in {seconds:.1f} s: {status['programmed']} programmed, "
          f"{status['waiting']} wait; {each_takes:.0f} bytes each, {used >> 20} MB in all; "
          f"the whole list in {whole:.1f} s")
    if status["programmed"] + status["waiting"] != len(routes):
        fail(f"offer: routes without a status: {status}")
    if len(listed) - 1 != status["waiting"]:
        fail(f"offer: {len(listed) - 1} of {status['waiting']} that wait are listed")
    waiting = {line["route"] for line in listed[1:]}
    there = [each for each in routes if str(each) not in waiting]
    sender.sendall(b"".join(route(int(each.network_address), each.prefixlen, True) for each in there))
    while True:
        after = velad.ask({"request": "status"})[0]
        if after["sources"][0]["messages"] == len(routes) + len(there) and not after["queued"]:
            break
        time.sleep(0.1)
    pulse.over = True
    pulse.join()
    usual = statistics.quantiles(pulse.seconds, n=10)[-1]
    print(f"    {len(there)} withdrawn: {after['programmed']} programmed, {after['waiting']} wait; "
          f"9 of 10 answers within {1000 * usual:.0f} ms, all within {1000 * max(pulse.seconds):.0f} ms")
    # Others may take more rows each, but these are as full as before.
    if rows(after) < 0.98 * rows(status):
        fail(f"offer: those that waited did not come in: {rows(after)} rows for {rows(status)}")
    if usual > ANSWER_SECONDS or max(pulse.seconds) > LONGEST_SECONDS:
        fail(f"offer: an answer took {max(pulse.seconds):.3f} s, 9 of 10 {usual:.3f} s")
    used = max(used, pulse.memory)
    if used > MEGABYTES << 20 or each_takes > BYTES_A_ROUTE:
        fail("offer: that is too much memory")
    velad.process.terminate()
    if velad.process.wait() != 0:
        fail("offer: velad did not end well")


if __name__ == "__main__":
    run(main)
