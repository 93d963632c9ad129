#!/usr/bin/env python3
"""Kills velad again and again while a stand-in for zebra changes routes. Routes that are announced all along
are never absent, neither from the running switch nor from the one that is left behind; in the end the switch
is as announced, and where nothing changed meanwhile no row is written. kill.py VELAD VELATABLE KILLS."""
import ipaddress
import json
import random
import select
import socket
import struct
import subprocess
import threading
import time

from client import PORT, Operator, fail, route, run, wait

ALL_ALONG = 1500  # The first of so many routes; the others come and go.
ROUTES = 2000
SETTLED = 5  # Of so many kills one finds everything done.
ROWS_A_CHANGE = 4


def address(number):
    return 0x14000000 + number * 512


def gateway(number):
    return bytes([10, 0, 0, 1 + number])


class Feeder(threading.Thread):
    """Announces what is desired to whoever listens, and changes it while `churning`."""

    def __init__(self, rng):
        super().__init__(daemon=True)
        self.rng = rng
        self.desired = {number: number % 40 for number in range(ALL_ALONG)}
        self.churning = False
        self.idle = False  # All that is desired was told.
        self.changes = 0
        self.start()

    def run(self):
        while True:
            try:
                with socket.create_connection(("127.0.0.1", PORT)) as peer:
                    peer.sendall(b"".join(route(address(each), 24, gateway=gateway(to))
                                          for each, to in self.desired.items()))
                    while True:
                        self.idle = not self.churning
                        if self.churning:
                            peer.sendall(b"".join(self.change() for _ in range(10)))
                        elif select.select([peer], [], [], 0)[0]:
                            raise ConnectionResetError
                        time.sleep(0.002)
            except OSError:
                self.idle = False
                time.sleep(0.01)

    def change(self):
        self.changes += 1
        number = self.rng.randrange(ROUTES)
        there = number in self.desired
        gone = route(address(number), 24, withdrawn=True)
        if there and number >= ALL_ALONG:
            del self.desired[number]
            return gone
        self.desired[number] = self.rng.randrange(40)
        new = route(address(number), 24, gateway=gateway(self.desired[number]))
        if not there:
            return new
        # A change is a removal and an addition in one frame.
        return struct.pack("!BBH", 1, 1, len(gone) + len(new) - 4) + gone[4:] + new[4:]


class Watcher(threading.Thread):
    """Asks whoever answers for the routes that are there all along."""

    def __init__(self, path):
        super().__init__(daemon=True)
        self.path = path
        self.absent = None
        self.rounds = 0
        self.start()

    def run(self):
        while not self.absent:
            try:
                operator = Operator(self.path)
                while True:
                    self.absent = self.absent or absent(operator.ask(lookup(range(ALL_ALONG))))
                    self.rounds += 1
            except (OSError, AssertionError):
                time.sleep(0.01)


def lookup(numbers):
    keys = [{"vrf": 0, "address": str(ipaddress.ip_address(address(each)))} for each in numbers]
    return {"request": "lookup", "table": "Route", "keys": keys}


def absent(lines):
    return next((line for line in lines if not line["hit"]), None)


def settle(velad, feeder):
    """Until all that is desired is told and done; the rows that were written since velad started."""
    feeder.churning = False
    wait("not all is told", lambda: feeder.idle)

    def done():
        status = velad.status()
        return status["sources"][0]["complete"] and not status["queued"]
    wait("velad is not complete", done)
    status = velad.status()
    ways = {(hop["l3LagIndex"], hop["rewriteIndex"]): hop["gateway"] for hop in status["nexthops"]}
    for number, line in enumerate(velad.ask(lookup(range(ROUTES)))):
        hit = line["hit"]
        found = hit and ways.get((hit["l3LagIndex"], hit["rewriteIndex"]))
        to = feeder.desired.get(number)
        wanted = None if to is None else str(ipaddress.ip_address(gateway(to)))
        if found != wanted:
            fail(f"kill: {line['key']} leads to {found}, not {wanted}")
    return status["rowWrites"]


def main(velad, tool, kills):
    kills = int(kills)
    rng = random.Random(1)
    feeder = Feeder(rng)
    settle(velad, feeder)
    watcher = Watcher(velad.path)
    saved = [str(ipaddress.ip_address(address(each))) for each in range(ALL_ALONG)]
    settled_at = feeder.changes
    rows = []
    for kill in range(kills):
        settled = kill % SETTLED == 0
        if settled:
            rows.append(settle(velad, feeder))
            if rows[-1] > ROWS_A_CHANGE * (feeder.changes - settled_at) and kill:
                fail(f"kill: {rows[-1]} rows for {feeder.changes - settled_at} changes")
            settled_at = feeder.changes
        else:
            feeder.churning = True
            time.sleep(rng.uniform(0, 0.5))
        velad.kill()
        told = subprocess.run([tool, "lookup", "--device", f"sim:{velad.work}/switch", "Route", *saved],
                              capture_output=True, check=True, text=True).stdout
        line = absent(map(json.loads, told.splitlines()))
        if line:
            fail(f"kill: absent from the switch that is left: {line}")
        velad.start()
        if settled and (written := settle(velad, feeder)):
            fail(f"kill: {written} rows rewritten although nothing changed")
        if watcher.absent:
            fail(f"kill: absent: {watcher.absent}")
    rows.append(settle(velad, feeder))
    if watcher.absent or not watcher.rounds:
        fail(f"kill: absent: {watcher.absent}; asked {watcher.rounds} times")
    print(f"    killed {kills} times under {feeder.changes} changes; rows after the last restarts before "
          f"all was done: {rows[1:]}, 0 where nothing changed; {ALL_ALONG} routes were there all along, "
          f"asked {watcher.rounds} times")


if __name__ == "__main__":
    run(main, quiet=0.3)
