"""Opens a page in headless Chromium and runs a scenario in it.

    drive_page.py <page.html> <scenario.js> [<data.json>]

The scenario is the body of an async function. It gets the data as `data` and a function `expect(what, actual,
expected)`. It runs three times on a fresh page: `view` is "desktop", "phone" (narrow and dark) or "print". The exit
status is 1 if an expectation fails, or if the browser reports a script error or any request but that for the page.
"""

import json
import pathlib
import re
import subprocess
import sys
import tempfile
import urllib.request

# Put together as text: the page's own policy forbids it to make functions of texts.
RUN = """
const [view, data] = arguments;
const failures = [];
const expect = (what, actual, expected) => {
    const [a, e] = [JSON.stringify(actual), JSON.stringify(expected)];
    if (a !== e) failures.push(`${what}: ${a} instead of ${e}`);
};
return (async () => {
%s
})().catch((error) => failures.push(String(error.stack))).then(() => failures);
"""


class Browser:
    """A session of chromedriver over the W3C WebDriver protocol."""

    def __init__(self, profile):
        command = ["chromedriver", "--port=0"]
        self.driver = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        for line in self.driver.stdout:
            found = re.search(r"started successfully on port (\d+)", line)
            if found:
                break
        else:
            sys.exit("chromedriver did not start")
        self.root = f"http://127.0.0.1:{found[1]}/session"
        flags = [
            "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
            "--disable-background-networking", "--disable-component-update", "--disable-sync",
            "--disable-dev-shm-usage", f"--user-data-dir={profile}",
        ]
        options = {"args": flags}
        wanted = {"goog:chromeOptions": options, "goog:loggingPrefs": {"browser": "ALL", "performance": "ALL"}}
        self.session = ""
        self.session = "/" + self.ask("", {"capabilities": {"alwaysMatch": wanted}})["sessionId"]

    def ask(self, path, body, method="POST"):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.root + self.session + path, data, method=method)
        request.add_header("Content-Type", "application/json")
        opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))
        try:
            with opener.open(request, timeout=120) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            sys.exit(error.read().decode())

    def command(self, name, **parameters):
        return self.ask("/goog/cdp/execute", {"cmd": name, "params": parameters})

    def requests(self):
        for entry in self.ask("/se/log", {"type": "performance"}):
            message = json.loads(entry["message"])["message"]
            if message["method"] == "Network.requestWillBeSent":
                yield message["params"]["request"]["url"]

    def close(self):
        if self.session:
            self.ask("", None, "DELETE")
        self.driver.terminate()
        self.driver.wait()


def emulate(browser, view):
    phone = view == "phone"
    size = {"width": 360, "height": 740} if phone else {"width": 1100, "height": 900}
    browser.command("Emulation.setDeviceMetricsOverride", **size, deviceScaleFactor=1, mobile=phone)
    scheme = {"name": "prefers-color-scheme", "value": "dark" if phone else "light"}
    browser.command("Emulation.setEmulatedMedia", media="print" if view == "print" else "", features=[scheme])


def run(browser, view, url, scenario, data):
    emulate(browser, view)
    browser.ask("/url", {"url": "about:blank"})
    for kind in ("browser", "performance"):  # what the browser itself did until now
        browser.ask("/se/log", {"type": kind})
    browser.ask("/url", {"url": url})
    failures = browser.ask("/execute/sync", {"script": RUN % scenario, "args": [view, data]})
    failures += [entry["message"] for entry in browser.ask("/se/log", {"type": "browser"})]
    allowed = (url, "about:", "data:")
    failures += ["request: " + asked for asked in browser.requests() if not asked.startswith(allowed)]
    return [f"{view}: {failure}" for failure in failures]


def main(page, scenario, data=None):
    with open(scenario, encoding="utf-8") as file:
        script = file.read()
    value = None
    if data:
        with open(data, encoding="utf-8") as file:
            value = json.load(file)
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as profile:
        browser = Browser(profile)
        try:
            url = pathlib.Path(page).absolute().as_uri()
            failures = [f for view in ("desktop", "phone", "print") for f in run(browser, view, url, script, value)]
        finally:
            browser.close()
    if failures:
        sys.exit("\n".join(failures))


main(*sys.argv[1:])
