#!/usr/bin/env python3
"""A client of velad's forwarding plane manager's port that hears what becomes of its routes, and then one
that does not read. offload.py VELAD."""
import socket
import struct
import threading
import time

from client import PORT, fail, route, run

OFFLOAD, FAILED = 0x4000, 0x20000000
COUNT = 200000


def address(number):
    return 0x14000000 + number * 512


class Client:
    def __init__(self):
        self.socket = socket.socket()
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
        self.socket.connect(("127.0.0.1", PORT))
        self.bytes = b""
        self.fates = {}
        self.answers = 0

    def tell(self, numbers, **how):
        self.socket.sendall(b"".join(route(address(each), 24, **how) for each in numbers))

    def hear(self, until):
        """Reads answers until `until()`, or nothing comes for long."""
        self.socket.settimeout(20)
        while not until():
            self.bytes += self.socket.recv(1 << 16)
            at = 0
            while len(self.bytes) - at >= 4:
                size = struct.unpack_from("!H", self.bytes, at + 2)[0]
                if len(self.bytes) - at < size:
                    break
                self.take(self.bytes[at + 4:at + size])
                at += size
            self.bytes = self.bytes[at:]

    def take(self, message):
        family, length, _, _, table, protocol, _, _, flags = struct.unpack_from("=BBBBBBBBI", message, 16)
        assert (family, length, table, protocol) == (2, 24, 254, 186), message
        assert struct.unpack_from("=IH", message) == (len(message), 24), message
        self.fates[struct.unpack_from("!I", message, 32)[0]] = flags
        self.answers += 1


def main(velad):
    client = Client()
    client.tell(range(100))
    client.tell(range(100, 110), interface=99)
    client.hear(lambda: client.answers == 110)
    if client.fates != {address(each): OFFLOAD if each < 100 else FAILED for each in range(110)}:
        fail(f"offload: wrong fates: {client.fates}")
    client.tell(range(100, 110))
    client.hear(lambda: client.answers == 120)
    if set(client.fates.values()) != {OFFLOAD}:
        fail("offload: routes that can be had now are not told")
    # More than there is room for; what waits comes in when others go.
    client.tell(range(9000))
    client.hear(lambda: len(client.fates) == 9000)
    waiting = [each for each in range(9000) if client.fates[address(each)] == FAILED]
    client.tell([each for each in range(9000) if each not in set(waiting)], withdrawn=True)
    client.hear(lambda: all(client.fates[address(each)] == OFFLOAD for each in waiting))
    client.tell(waiting, withdrawn=True)
    client.socket.close()
    print(f"    {client.answers} answers, {len(waiting)} of routes that waited first")

    client = Client()
    memory = velad.memory()
    before = velad.status()["sources"][0]["messages"]
    sender = threading.Thread(target=client.tell, args=(range(COUNT),), daemon=True)
    sender.start()
    heard, now = -1, 0
    while heard != now or now == 0:
        time.sleep(1)
        heard, now = now, velad.status()["sources"][0]["messages"] - before
    if now >= COUNT:
        fail("offload: a client that does not read is not held back")
    if velad.memory() - memory > 400 * now:
        fail(f"offload: {velad.memory() - memory} bytes more for {now} routes whose client does not read")
    client.hear(lambda: len(client.fates) == COUNT)
    sender.join()
    status = velad.status()
    programmed = list(client.fates.values()).count(OFFLOAD)
    if programmed != status["programmed"]:
        fail(f"offload: {programmed} routes were told, {status['programmed']} are programmed")
    print(f"    held back after {now} of {COUNT} routes; all were told in the end")


if __name__ == "__main__":
    run(main, offload=True)
