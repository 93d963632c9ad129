"""A velad of one's own, operators of it, and what a client of its forwarding plane manager's port says."""
import json
import socket
import struct
import subprocess
import sys
import tempfile
import time

PORT = 26200


def route(address, length, withdrawn=False, gateway=None, interface=1):
    def attribute(kind, data):
        return struct.pack("=HH", 4 + len(data), kind) + data
    body = struct.pack("=BBBBBBBBI", 2, length, 0, 0, 254, 186, 0, 0 if withdrawn else 1, 0)
    body += attribute(1, struct.pack("!I", address))
    if not withdrawn:
        body += attribute(5, gateway or bytes([10, 0, 0, 1 + address % 50])) + attribute(4, struct.pack("=I", interface))
    message = struct.pack("=IHHII", 16 + len(body), 25 if withdrawn else 24, 0, 0, 0) + body
    return struct.pack("!BBH", 1, 1, 4 + len(message)) + message


class Velad:
    """A running velad, whose first interface has a port."""

    def __init__(self, program, work, settings=None, **fpm):
        self.program = program
        self.work = work
        self.path = f"{work}/control"
        # The first interface there is, whatever its name is here.
        self.settings = {"device": f"{work}/switch", "control": self.path, "tables": {"254": 0},
                         "interfaces": {socket.if_indextoname(1): 1},
                         "fpm": {"listen": f"127.0.0.1:{PORT}", "quiet": 60, **fpm}, **(settings or {})}
        self.configure()
        self.start()

    def configure(self, **changes):
        self.settings.update(changes)
        with open(f"{self.work}/velad.json", "w") as out:
            json.dump(self.settings, out)
        return out.name

    def start(self):
        with open(f"{self.work}/log", "a") as log:
            self.process = subprocess.Popen([self.program, f"{self.work}/velad.json"], stderr=log)
        while True:
            try:
                self.operator = Operator(self.path)
                break
            except OSError:
                if self.process.poll() is not None:
                    fail("velad does not start")
                time.sleep(0.01)
        self.ask = self.operator.ask

    def kill(self):
        self.process.kill()
        self.process.wait()

    def status(self):
        return self.ask({"request": "status"})[0]

    def log(self):
        with open(f"{self.work}/log") as log:
            return log.read()

    def memory(self):
        """What is its own: the switch is a file."""
        with open(f"/proc/{self.process.pid}/status") as lines:
            return next(int(line.split()[1]) for line in lines if line.startswith("RssAnon")) * 1024


class Operator:
    def __init__(self, path):
        self.peer = socket.socket(socket.AF_UNIX)
        self.peer.connect(path)
        self.lines = self.peer.makefile()

    def send(self, request):
        self.peer.sendall((json.dumps(request) + "\n").encode())

    def ask(self, request):
        self.send(request)
        answer = []
        while (line := self.lines.readline()) and not line.startswith('{"done"'):
            answer.append(line)
        assert line == '{"done":true}\n', line
        return [json.loads(each) for each in answer]


def wait(what, until, seconds=30):
    end = time.time() + seconds
    while not until():
        if time.time() > end:
            fail(f"{what} in {seconds} s")
        time.sleep(0.01)


def fail(what):
    raise SystemExit(what)


def run(main, **fpm):
    """Of a script whose first argument is velad: what it does with one, and the other arguments."""
    with tempfile.TemporaryDirectory() as folder:
        velad = Velad(sys.argv[1], folder, **fpm)
        try:
            main(velad, *sys.argv[2:])
        finally:
            velad.kill()
