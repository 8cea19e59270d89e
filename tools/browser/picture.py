# SPDX-License-Identifier: MIT
"""picture.py BUILD PNG: the service's page behind two uploads of the programs in that folder, for the documents."""

import base64
import json
import pathlib
import shutil
import sys
import tempfile

from browser import Browser
from programs import PHONE, Service

build, picture = (pathlib.Path(word).resolve() for word in sys.argv[1:])
with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as name:
    folder = pathlib.Path(name)
    service, browser = Service(build, folder), Browser(folder / "profile")
    phone = json.loads(PHONE.read_text(encoding="utf-8"))
    phone["systemVersion"] = "17.6"
    phone["location"]["fixes"][0]["latitude"] = 59.3312
    (folder / "later.json").write_text(json.dumps(phone), encoding="utf-8")
    browser.open(service.page)
    for device in (PHONE, folder / "later.json"):
        service.host("--decimals", "3", "tags", device=device)
        shutil.rmtree(folder / "data")  # else the second would come from the cache
    browser.wait("document.querySelector('#uploads').childElementCount === 2")
    picture.write_bytes(base64.b64decode(browser.call("Page.captureScreenshot")["data"]))
    browser.close()
    service.close()
