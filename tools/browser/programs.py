# SPDX-License-Identifier: MIT
"""The service, and the host on a scripted phone that uploads to it."""

import json
import pathlib
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
PHONE = ROOT / "examples/demo/phone.json"
TOKEN = "6E1F3C1A-8C5B-4C0E-9B57-5F3B1D0A7C42"


class Service:
    """With its page at `page`; keeps its files and the host's in `folder`."""

    def __init__(self, build, folder):
        self.build, self.folder = build, folder
        self.process = subprocess.Popen(
            [build / "tools/service/morvellacinto-service", "--page", "0", "--ca-out", folder / "ca.pem"],
            stdout=subprocess.PIPE, text=True)
        ready = json.loads(self.process.stdout.readline())
        self.page, self.url, self.ca = ready["page"], ready["url"], ready["ca"]

    def host(self, *words, device=PHONE):
        """What the host prints, run with these words."""
        return subprocess.run(
            [self.build / "tools/host/morvellacinto", "--device", device, "--token", TOKEN, "--ca-file", self.ca,
             "--data-dir", self.folder / "data", "--service-url", self.url, *words],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=False).stdout

    def close(self):
        self.process.terminate()
        return self.process.wait(2)
