"""Chromium without a window, driven through a pipe."""
import base64
import json
import os
import subprocess


class Browser:
    """A page; `said` has what it told the console, `asked` the addresses that it asked for."""

    def __init__(self, work):
        to_browser, self.output = os.pipe()
        self.input, from_browser = os.pipe()

        def descriptors():  # the browser reads 3 and writes 4
            spare = [os.dup2(to_browser, 30), os.dup2(from_browser, 31)]
            os.dup2(spare[0], 3)
            os.dup2(spare[1], 4)
        self.process = subprocess.Popen(
            ["chromium", "--headless=new", "--no-sandbox", "--disable-gpu", "--remote-debugging-pipe",
             "--disable-background-networking", "--disable-component-update", "--hide-scrollbars",
             "--force-prefers-reduced-motion", f"--user-data-dir={work}/profile"],
            close_fds=False, preexec_fn=descriptors, stderr=subprocess.DEVNULL)
        os.close(to_browser)
        os.close(from_browser)
        self.number, self.buffer, self.session = 0, b"", None
        self.said, self.asked = [], []
        target = self("Target.createTarget", url="about:blank")["targetId"]
        self.session = self("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Network", "Log"):
            self(domain + ".enable")

    def receive(self):
        while b"\0" not in self.buffer:
            part = os.read(self.input, 1 << 20)
            if not part:
                raise EOFError("chromium has ended")
            self.buffer += part
        text, self.buffer = self.buffer.split(b"\0", 1)
        message = json.loads(text)
        method, told = message.get("method"), message.get("params", {})
        if method in ("Runtime.consoleAPICalled", "Runtime.exceptionThrown", "Log.entryAdded"):
            self.said.append(told)
        if method == "Network.requestWillBeSent":
            self.asked.append(told["request"]["url"])
        return message

    def __call__(self, method, **parameters):
        self.number += 1
        message = {"id": self.number, "method": method, "params": parameters}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.output, json.dumps(message).encode() + b"\0")
        while True:
            reply = self.receive()
            if reply.get("id") == self.number:
                if "error" in reply:
                    raise RuntimeError(f"{method}: {reply['error']}")
                return reply["result"]

    def open(self, url):
        self("Page.navigate", url=url)
        while self.receive().get("method") != "Page.loadEventFired":
            pass

    def run(self, script):
        """What the script says, which may wait."""
        reply = self("Runtime.evaluate", expression=script, awaitPromise=True, returnByValue=True)
        if "exceptionDetails" in reply:
            raise RuntimeError(reply["exceptionDetails"]["exception"]["description"])
        return reply["result"].get("value")

    def look(self, width, height, dark=False, scale=1):
        self("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=scale,
             mobile=width < 600)
        self("Emulation.setEmulatedMedia", features=[
            {"name": "prefers-color-scheme", "value": "dark" if dark else "light"},
            {"name": "prefers-reduced-motion", "value": "reduce"}])

    def picture(self, path, **clip):
        more = {"clip": {"scale": 1, **clip}, "captureBeyondViewport": True} if clip else {}
        with open(path, "wb") as out:
            out.write(base64.b64decode(self("Page.captureScreenshot", format="png", **more)["data"]))

    def close(self):
        self.session = None
        try:
            self("Browser.close")
        except (EOFError, BrokenPipeError):
            pass
        self.process.wait(10)
