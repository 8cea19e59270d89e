#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""page_test.py BUILD [TEST...]: the service's page in a browser while the real host uploads to that service."""

import http.client
import json
import pathlib
import socket
import ssl
import sys
import tempfile
import unittest

sys.path.append(str(pathlib.Path(__file__).resolve().parents[2] / "tools/browser"))
from browser import Browser
from programs import ROOT, TOKEN, Service

BUILD = pathlib.Path(sys.argv.pop(1)).resolve()


def ask(connection, method, path, body=None, headers=None):
    connection.request(method, path, body, headers or {})
    return connection.getresponse()


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
        self.service = Service(BUILD, pathlib.Path(self.folder.name))
        self.address = self.service.page.split("/")[2]
        self.browser.complaints.clear()
        self.browser.open(self.service.page)

    def tearDown(self):
        complaints = list(self.browser.complaints)
        self.assertEqual(self.service.close(), 0)  # in time, with the page open
        self.folder.cleanup()
        self.assertEqual(complaints, [])  # of the policy on content, too

    def upload(self, body):
        """Past the host, which would write numbers its own way."""
        address = self.service.url.split("/")[2]
        connection = http.client.HTTPSConnection(address, context=ssl._create_unverified_context())
        return ask(connection, "POST", "/v5/audience/", body).read()

    def ask_page(self, *request):
        return ask(http.client.HTTPConnection(self.address), *request)

    def rows(self, uploads):
        """Of the latest upload, once there are so many: name with its mark, value, what it tells."""
        self.browser.wait(f"document.querySelector('#uploads').childElementCount === {uploads}")
        return self.browser.run("""[...document.querySelectorAll("#uploads > :first-child tbody tr")].map(
            row => [...row.cells].map(cell => cell.textContent))""")

    def test_an_upload_appears_with_the_words_of_the_data_inventory_and_the_tokens_end(self):
        self.service.host("--decimals", "3", "tags")
        lines = (ROOT / "docs/data-inventory.md").read_text(encoding="utf-8").split("\n")
        inventory = [[cell.strip() for cell in line.split("|")[1:-1]] for line in lines if line.startswith("| `")]
        rows = self.rows(1)
        self.assertEqual([[row[0], row[2]] for row in rows], [[told[0].strip("`"), told[1]] for told in inventory])
        values = {row[0]: row[1] for row in rows}
        self.assertEqual([values["lat"], values["API_TOKEN"]], ["59.329", "…7C42"])
        self.assertIn("3 decimals, somewhere in a cell of 111 m by 56.7 m",
                      self.browser.run("document.querySelector('figcaption').textContent"))
        stream = self.ask_page("GET", "/events")
        events = b"".join(stream.readline() for _ in range(3))
        self.assertIn(b"7C42", events)
        self.assertNotIn(TOKEN[-12:].encode(), events)

    def test_what_changed_since_the_upload_before_is_told(self):
        self.upload('{"lat": 1.50, "lon": 2, "speed": 1, "locale": "sv_SE"}')
        self.upload('{"lat": 1.5, "lon": 2, "locale": "en_US", "system": "1"}')
        self.assertEqual([row[:2] for row in self.rows(2)], [
            ["lat changed", "1.5was 1.50"], ["lon", "2"], ["locale changed", '"en_US"was "sv_SE"'],
            ["system new", '"1"'], ["speed gone", "1"]])

    def test_edited_tags_and_the_next_scenario_reach_the_host(self):
        self.browser.run("find('tags').select()")
        self.browser.call("Input.insertText", text='{"mood": ["calm"], "n": 1.50}')
        self.browser.run("find('send').click()")
        self.browser.wait("!find('reset').disabled")
        answer = json.loads(self.service.host("collect", "--force"))
        self.assertEqual(answer["tags"], {"mood": ["calm"], "n": 1.5})
        self.browser.run("document.querySelector('[data-steps*=close]').click()")
        pressed = "document.querySelector('[aria-pressed=true]')?.textContent.startsWith('%s')"
        self.browser.wait(pressed % "Not at all")
        self.assertEqual(self.service.host("collect", "--force"), "")
        self.browser.wait(pressed % "As usual")

    def test_hostile_values_stay_text(self):
        markup = '<img src=x onerror="window.broken = 1">'
        payload = {markup: markup, "turned": "a\u202eb\u0007\u2028c", "__proto__": 1, "long": "x" * 1_000_000}
        self.upload(json.dumps(payload))
        rows = self.rows(1)
        self.assertEqual([row[:2] for row in rows[:3]], [
            [markup, json.dumps(markup)], ["turned", '"a\\u202eb\\u0007\\u2028c"'], ["__proto__", "1"]])
        self.assertRegex(rows[3][1], '^"x{299}… 1,000,002 characters in all$')
        self.upload("\0<b>no JSON")
        self.assertEqual(self.rows(2)[0][1], "\\u0000<b>no JSON")
        broken = "[window.broken, document.querySelectorAll('main img, main .value b').length]"
        self.assertEqual(self.browser.run(broken), [None, 0])

    def test_strangers_are_refused(self):
        ours, theirs = "http://" + self.address, "http://stranger.example"
        for method, body, headers, status in [
                ("GET", None, {"Host": theirs[7:]}, 403),
                ("POST", None, {"Host": theirs[7:], "Origin": theirs}, 403),
                ("POST", None, {"Origin": theirs}, 403),
                ("POST", None, {}, 403),
                ("POST", "x" * (1 << 21), {"Origin": ours}, 413),
                ("POST", '{"steps": [{"x": 1}]}', {"Origin": ours}, 400)]:
            answer = self.ask_page(method, "/answers", body, headers)
            # Else the body of a refused request would be read as another.
            self.assertEqual((answer.status, answer.getheader("Connection")), (status, "close"), headers)
        self.assertNotIn("unsafe", self.ask_page("GET", "/").getheader("Content-Security-Policy"))
        with self.assertRaises(ConnectionRefusedError):
            socket.create_connection(("127.0.0.2", int(self.address.split(":")[1])))


if __name__ == "__main__":
    unittest.main(warnings="ignore")  # of sockets that the collector closes
