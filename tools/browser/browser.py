# SPDX-License-Identifier: MIT
"""Headless Chromium, Debian's package, driven over its debugging pipe."""

import json
import os
import select
import shutil
import subprocess
import time

DEADLINE = 30  # seconds


class Browser:
    """One tab; speaks with Chromium over pipes at its descriptors 3 and 4."""

    def __init__(self, folder):
        program = shutil.which("chromium")
        if program is None:
            raise SystemExit("this needs Debian's package chromium")
        ours, self.pipe = os.pipe()
        self.answers, theirs = os.pipe()
        root = ["--no-sandbox"] if os.geteuid() == 0 else []
        self.process = subprocess.Popen(
            ["sh", "-c", f'exec "$@" 3<&{ours} 4>&{theirs}', "sh", program, "--headless", *root, "--disable-gpu",
             "--disable-dev-shm-usage", "--remote-debugging-pipe", f"--user-data-dir={folder}"],
            pass_fds=(ours, theirs), stderr=subprocess.DEVNULL)
        os.close(ours)
        os.close(theirs)
        self.buffer, self.count, self.session, self.complaints = b"", 0, {}, []
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        attached = self.call("Target.attachToTarget", targetId=target, flatten=True)
        self.session = {"sessionId": attached["sessionId"]}
        self.call("Runtime.enable")
        self.call("Log.enable")

    def call(self, method, **parameters):
        self.count += 1
        message = {"id": self.count, "method": method, "params": parameters, **self.session}
        os.write(self.pipe, json.dumps(message).encode() + b"\0")
        while True:
            while b"\0" not in self.buffer:
                part = select.select([self.answers], [], [], DEADLINE)[0] and os.read(self.answers, 1 << 16)
                if not part:
                    raise ConnectionError(f"Chromium does not answer {method}")
                self.buffer += part
            line, self.buffer = self.buffer.split(b"\0", 1)
            answer = json.loads(line)
            if answer.get("id") == self.count:
                return answer["result"]
            if answer.get("method") in ("Runtime.exceptionThrown", "Log.entryAdded") and b'"network"' not in line:
                self.complaints.append(line.decode())

    def open(self, page):
        self.call("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": "light"}])
        self.call("Emulation.setDeviceMetricsOverride", width=1280, height=880, deviceScaleFactor=1.5, mobile=False)
        self.call("Emulation.setScrollbarsHidden", hidden=True)
        self.call("Page.navigate", url=page)
        self.wait("document.getElementById('connection')?.textContent === 'Listening'")

    def run(self, script):
        result = self.call("Runtime.evaluate", expression=script, awaitPromise=True, returnByValue=True)
        if "exceptionDetails" in result:
            raise AssertionError(result["exceptionDetails"]["exception"].get("description"))
        return result["result"].get("value")

    def wait(self, condition):
        end = time.monotonic() + DEADLINE
        while not self.run(condition):
            if time.monotonic() > end:
                raise AssertionError(f"{condition} did not come true", self.run("document.body.innerText"),
                                     self.complaints)
            time.sleep(0.02)

    def close(self):
        self.call("Browser.close")
        self.process.wait(DEADLINE)
