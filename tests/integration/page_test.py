#!/usr/bin/env python3
"""Drives the service's page in headless Chromium while the real host uploads to that service.

page_test.py BUILD [test]      runs the tests
page_test.py BUILD --picture FILE [light|dark [WIDTH]]  makes the picture of the documents
"""

import base64
import http.client
import json
import os
import pathlib
import re
import select
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(sys.argv[1]).resolve()
DEADLINE = 30  # seconds
TOKEN = "6E1F3C1A-8C5B-4C0E-9B57-5F3B1D0A7C42"


class Browser:
    """One tab; speaks with Chromium over pipes at its descriptors 3 and 4."""

    def __init__(self, folder):
        program = shutil.which("chromium")
        if program is None:
            raise SystemExit("the test of the page needs Debian's package chromium")
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
                if not select.select([self.answers], [], [], DEADLINE)[0]:
                    raise TimeoutError(method)
                self.buffer += os.read(self.answers, 1 << 16)
            line, self.buffer = self.buffer.split(b"\0", 1)
            answer = json.loads(line)
            if answer.get("id") == self.count:
                return answer["result"]
            if answer.get("method") in ("Runtime.exceptionThrown", "Log.entryAdded"):
                self.complaints.append(line.decode())

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


class Service:
    """The service and hosts on a scripted phone that upload to it."""

    def __init__(self, folder):
        self.folder = folder
        self.process = subprocess.Popen(
            [BUILD / "tools/service/morvellacinto-service", "--page", "0", "--ca-out", folder / "ca.pem"],
            stdout=subprocess.PIPE, text=True)
        self.ready = json.loads(self.process.stdout.readline())
        self.page = self.ready["page"]

    def host(self, *words, payload=None, device=ROOT / "examples/demo/phone.json"):
        if payload is not None:
            (self.folder / "payload.json").write_text(payload, encoding="utf-8")
            words += ("--payload", self.folder / "payload.json")
        return subprocess.run(
            [BUILD / "tools/host/morvellacinto", "--device", device, "--token", TOKEN,
             "--ca-file", self.ready["ca"], "--data-dir", self.folder / "data", "--service-url", self.ready["url"],
             *words], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=False).stdout

    def close(self):
        self.process.terminate()
        self.process.communicate()
