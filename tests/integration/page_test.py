#!/usr/bin/env python3
"""Drives the service's page in headless Chromium while the real host uploads to that service.

page_test.py BUILD [TEST...]  runs the tests on the programs of that folder
page_test.py BUILD PNG        makes the picture for the documents
"""

import base64
import contextlib
import http.client
import json
import os
import pathlib
import select
import shutil
import socket
import ssl
import subprocess
import sys
import tempfile
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(sys.argv.pop(1)).resolve()
PHONE = ROOT / "examples/demo/phone.json"
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

    def open(self, page, scheme="light", width=1280):
        self.call("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=880, deviceScaleFactor=1.5, mobile=False)
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


class Service:
    """The service and hosts on a scripted phone that upload to it."""

    def __init__(self, folder):
        self.folder = folder
        self.process = subprocess.Popen(
            [BUILD / "tools/service/morvellacinto-service", "--page", "0", "--ca-out", folder / "ca.pem"],
            stdout=subprocess.PIPE, text=True)
        self.ready = json.loads(self.process.stdout.readline())
        self.page = self.ready["page"]

    def host(self, *words, payload=None, device=PHONE):
        if payload is not None:
            (self.folder / "payload.json").write_text(payload, encoding="utf-8")
            words += ("--payload", self.folder / "payload.json")
        return subprocess.run(
            [BUILD / "tools/host/morvellacinto", "--device", device, "--token", TOKEN,
             "--ca-file", self.ready["ca"], "--data-dir", self.folder / "data", "--service-url", self.ready["url"],
             *words], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=False).stdout

    def upload(self, body, **headers):
        """Past the host, which would write numbers its own way."""
        address = self.ready["url"].split("/")[2]
        connection = http.client.HTTPSConnection(address, context=ssl._create_unverified_context())
        connection.request("POST", "/v5/audience/", body, headers)
        return connection.getresponse().read()

    def ask(self, method, path, body=None, **headers):
        connection = http.client.HTTPConnection(self.page.split("/")[2])
        connection.request(method, path, body, headers)
        return connection.getresponse()

    def close(self):
        self.process.terminate()
        return self.process.wait(2)


# Rows of the latest upload: name with its mark, value, what it tells, the rest.
ROWS = """[...document.querySelectorAll("#uploads > :first-child tbody tr")].map(
    row => [...row.cells].map(cell => cell.textContent))"""


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.profile = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        cls.browser = Browser(cls.profile.name)

    @classmethod
    def tearDownClass(cls):
        cls.browser.close()
        cls.profile.cleanup()

    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.service = Service(pathlib.Path(self.folder.name))
        self.browser.complaints.clear()
        self.browser.open(self.service.page)

    def tearDown(self):
        complaints = list(self.browser.complaints)
        self.assertEqual(self.service.close(), 0)  # in time, with the page open
        self.folder.cleanup()
        self.assertEqual(complaints, [])  # of the policy on content, too

    def rows(self, uploads):
        self.browser.wait(f"document.querySelector('#uploads').childElementCount === {uploads}")
        return self.browser.run(ROWS)

    def test_an_upload_appears_with_the_words_of_the_data_inventory(self):
        self.service.host("--decimals", "3", "tags")
        lines = (ROOT / "docs/data-inventory.md").read_text(encoding="utf-8").split("\n")
        inventory = [[cell.strip() for cell in line.split("|")[1:-1]] for line in lines if line.startswith("| `")]
        rows = self.rows(1)
        self.assertEqual([row[0] for row in rows], [row[0].strip("`") for row in inventory])
        for shown, told in zip(rows, inventory):
            self.assertEqual(shown[2], told[1])
            for words in told[2:]:
                self.assertIn(words.replace("`", ""), shown[3])
        values = {row[0]: row[1] for row in rows}
        self.assertEqual(values["lat"], "59.329")
        self.assertEqual(values["API_TOKEN"], "…7C42")
        self.assertIn("3 decimals, somewhere in a cell of 111 m by 56.7 m",
                      self.browser.run("document.querySelector('figcaption').textContent"))
        connection = self.service.ask("GET", "/events")
        events = connection.readline() + connection.readline() + connection.readline()
        self.assertIn(b"7C42", events)
        self.assertNotIn(TOKEN[-12:].encode(), events)

    def test_what_changed_since_the_upload_before_is_told(self):
        self.service.upload('{"lat": 1.50, "lon": 2, "speed": 1, "locale": "sv_SE"}')
        self.service.upload('{"lat": 1.5, "lon": 2, "locale": "en_US", "system": "1"}')
        self.assertEqual([row[:2] for row in self.rows(2)], [
            ["lat changed", "1.5was 1.50"], ["lon", "2"], ["locale changed", '"en_US"was "sv_SE"'],
            ["system new", '"1"'], ["speed gone", "1"]])
        captions = self.browser.run("[...document.querySelectorAll('figcaption')].map(c => c.textContent)")
        self.assertIn("2 decimals", captions[1])
        self.assertIn("1 decimals", captions[0])

    def test_edited_tags_and_the_next_scenario_reach_the_host(self):
        def type_tags(text):
            self.browser.run("find('tags').select()")
            self.browser.call("Input.insertText", text=text)
        pressed = "document.querySelector('[aria-pressed=true]')?.textContent.startsWith('%s')"
        self.service.host("collect", "--force")
        self.rows(1)
        type_tags('{"mood": ["calm"')
        self.browser.wait("find('send').disabled")
        self.assertIn("JSON", self.browser.run("find('problem').textContent"))
        type_tags('{"mood": ["calm"], "n": 1.50}')
        self.browser.run("find('send').click()")
        self.browser.wait("!find('reset').disabled")
        answer = json.loads(self.service.host("collect", "--force"))
        self.assertEqual(answer["tags"], {"mood": ["calm"], "n": 1.5})
        self.assertIn("device", answer["mapping"])
        self.browser.run("document.querySelector('[data-steps*=close]').focus()")
        self.browser.call("Input.dispatchKeyEvent", type="keyDown", key="Enter", code="Enter", text="\r")
        self.browser.wait(pressed % "Not at all")
        self.assertEqual(self.service.host("collect", "--force"), "")
        self.browser.wait(pressed % "As usual")
        self.browser.run("find('reset').click()")
        self.browser.wait("find('reset').disabled")
        self.assertIn("locale", json.loads(self.service.host("collect", "--force"))["tags"])

    def test_hostile_values_stay_text_and_the_page_keeps_its_width(self):
        markup = '<img src=x onerror="window.broken = 1">'
        payload = {markup: markup, "turned": "a\u202eb\u0007\u2028c", "__proto__": 1, "long": "x" * 1_000_000}
        self.service.host("collect", "--force", payload=json.dumps(payload))
        rows = self.rows(1)
        self.assertEqual([rows[0][0], rows[0][1]], [markup, json.dumps(markup)])
        self.assertEqual(rows[1][1], '"a\\u202eb\\u0007\\u2028c"')
        self.assertEqual(rows[2][:2], ["__proto__", "1"])
        self.assertRegex(rows[3][1], '^"x{299}… 1,000,002 characters in all$')
        self.assertIn(b"API_TOKEN", self.service.upload("\0<b>no JSON", API_TOKEN="1"))
        self.assertEqual(self.rows(2)[0][1], "\\u0000<b>no JSON")
        self.assertEqual(self.browser.run("[window.broken, document.querySelectorAll('main img, main .value b').length]"),
                         [None, 0])
        for scheme, colour in (("light", "rgb(245, 246, 248)"), ("dark", "rgb(20, 23, 28)")):
            self.browser.open(self.service.page, scheme, 380)
            self.rows(2)
            self.assertLessEqual(self.browser.run("document.documentElement.scrollWidth"), 380)
            self.assertEqual(self.browser.run("getComputedStyle(document.documentElement).backgroundColor"), colour)
        nodes = self.browser.call("Accessibility.getFullAXTree")["nodes"]
        named = {(node["role"]["value"], node.get("name", {}).get("value")) for node in nodes if "role" in node}
        self.assertLessEqual({("table", "Fields"), ("rowheader", "(no JSON) new"), ("status", ""), ("complementary", "Answers")},
                             named)

    def test_strangers_are_refused(self):
        ours = self.service.page.rstrip("/")
        theirs = "http://stranger.example"
        cases = [("GET", None, {"Host": theirs[7:]}, 403),
                 ("POST", None, {"Host": theirs[7:], "Origin": theirs}, 403),
                 ("POST", None, {"Origin": theirs}, 403),
                 ("POST", None, {}, 403),
                 ("POST", "x" * (1 << 21), {"Origin": ours}, 413),
                 ("POST", "[1]", {"Origin": ours}, 400),
                 ("POST", '{"steps": [{"x": 1}]}', {"Origin": ours}, 400)]
        for method, body, headers, status in cases:
            self.assertEqual(self.service.ask(method, "/answers", body, **headers).status, status, headers)
        # What comes as the body of a refused request is not read as another.
        tags = '{"tags": {"stranger": []}}'
        host, port = ours[7:].split(":")
        head = f"POST /answers HTTP/1.1\r\nHost: {host}\r\nContent-Length: %d\r\n%s\r\n"
        inner = head % (len(tags), f"Origin: http://{host}\r\n") + tags
        with socket.create_connection((host, int(port))) as connection:
            connection.sendall((head % (len(inner), "")).encode())
            self.assertIn(b" 403 ", connection.recv(4096))
            with contextlib.suppress(ConnectionError):
                connection.sendall(inner.encode())
                connection.recv(4096)
        self.assertNotIn(b"stranger", self.service.upload('{"locale": "sv_SE"}'))
        self.assertNotIn("unsafe", self.service.ask("GET", "/").getheader("Content-Security-Policy"))
        with self.assertRaises(ConnectionRefusedError):
            socket.create_connection(("127.0.0.2", int(port)))


def make_picture(path):
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as name:
        folder = pathlib.Path(name)
        service, browser = Service(folder), Browser(folder / "profile")
        phone = json.loads(PHONE.read_text(encoding="utf-8"))
        phone["systemVersion"] = "17.6"
        phone["location"]["fixes"][0]["latitude"] = 59.3312
        (folder / "later.json").write_text(json.dumps(phone), encoding="utf-8")
        browser.open(service.page)
        for device in (PHONE, folder / "later.json"):
            service.host("--decimals", "3", "tags", device=device)
            shutil.rmtree(folder / "data")  # else the second would come from the cache
        browser.wait("document.querySelector('#uploads').childElementCount === 2")
        path.write_bytes(base64.b64decode(browser.call("Page.captureScreenshot")["data"]))
        browser.close()
        service.close()


if __name__ == "__main__":
    if sys.argv[-1].endswith(".png"):
        make_picture(pathlib.Path(sys.argv[-1]))
    else:
        unittest.main(warnings="ignore")  # of sockets that the collector closes
