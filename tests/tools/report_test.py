#!/usr/bin/env python3
"""Opens pages of kvjpx report in Chromium, which is told by the DevTools protocol over pipes.

usage: report_test.py KVJPX SAMPLES
Ends with 77 where there is no Chromium.
"""

import json
import os
import pathlib
import shutil
import struct
import subprocess
import sys
import tempfile
import typing

Json = typing.Dict[str, typing.Any]


class Browser:
    """A tab of a Chromium of its own; notes whatever it says and asks for."""

    def __init__(self, program: str, folder: str) -> None:
        for_browser, self.to = os.pipe()
        self.answers, from_browser = os.pipe()
        command = [program, "--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                   "--remote-debugging-pipe", "--host-resolver-rules=MAP * ~NOTFOUND",
                   "--user-data-dir=" + folder, "--window-size=1280,900", "about:blank"]
        shell = 'exec 3<&"$0" 4>&"$1"; shift; exec "$@"'
        self.process = subprocess.Popen(
            ["sh", "-c", shell, str(for_browser), str(from_browser), *command],
            pass_fds=(for_browser, from_browser), stderr=subprocess.DEVNULL)
        os.close(for_browser)
        os.close(from_browser)
        self.number = 0
        self.rest = b""
        self.session: typing.Optional[str] = None
        self.complaints: typing.List[str] = []
        self.requests: typing.List[str] = []
        self.loaded = False
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Network"):
            self.call(domain + ".enable")

    def receive(self) -> Json:
        while b"\0" not in self.rest:
            piece = os.read(self.answers, 1 << 16)
            if not piece:
                raise RuntimeError("Chromium has ended")
            self.rest += piece
        message, self.rest = self.rest.split(b"\0", 1)
        return typing.cast(Json, json.loads(message))

    def note(self, message: Json) -> None:
        method, values = message.get("method"), message.get("params", {})
        if method == "Network.requestWillBeSent":
            self.requests.append(values["request"]["url"])
        elif method in ("Runtime.consoleAPICalled", "Runtime.exceptionThrown", "Log.entryAdded"):
            self.complaints.append(json.dumps(values))
        elif method == "Page.loadEventFired":
            self.loaded = True

    def call(self, method: str, **values: typing.Any) -> Json:
        self.number += 1
        message: Json = {"id": self.number, "method": method, "params": values}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.to, json.dumps(message).encode() + b"\0")
        while True:
            answer = self.receive()
            if answer.get("id") == self.number:
                if "error" in answer:
                    raise RuntimeError(method + ": " + json.dumps(answer["error"]))
                return typing.cast(Json, answer["result"])
            self.note(answer)

    def show(self, page: pathlib.Path) -> None:
        self.complaints, self.requests, self.loaded = [], [], False
        self.call("Page.navigate", url=page.as_uri())
        while not self.loaded:
            self.note(self.receive())

    def ask(self, expression: str) -> typing.Any:
        """one(SELECTOR) is the first such element, all(SELECTOR) an array of them."""
        helpers = ("const one = s => document.querySelector(s),"
                   " all = s => [...document.querySelectorAll(s)]; ")
        result = self.call("Runtime.evaluate", expression="{" + helpers + expression + "}",
                           returnByValue=True)
        if "exceptionDetails" in result:
            raise RuntimeError(expression + ": " + json.dumps(result["exceptionDetails"]))
        return result["result"].get("value")

    def click(self, selector: str) -> None:
        place = self.ask(f"const e = one({json.dumps(selector)});"
                         " e.scrollIntoView({behavior: 'instant', block: 'center'});"
                         " const r = e.getBoundingClientRect();"
                         " [r.x + Math.min(r.width / 2, 60), r.y + 8]")
        for kind in ("mousePressed", "mouseReleased"):
            self.call("Input.dispatchMouseEvent", type=kind, x=place[0], y=place[1], button="left",
                      clickCount=1)

    def press(self, key: str, code: int, text: str = "") -> None:
        for kind in ("keyDown", "keyUp"):
            self.call("Input.dispatchKeyEvent", type=kind, key=key, code=key,
                      windowsVirtualKeyCode=code, text=text if kind == "keyDown" else "")

    def media(self, medium: str = "", scheme: str = "") -> None:
        self.call("Emulation.setEmulatedMedia", media=medium,
                  features=[{"name": "prefers-color-scheme", "value": scheme}])


def box(kind: bytes, content: bytes = b"") -> bytes:
    return struct.pack(">I", len(content) + 8) + kind + content


EVIL = b"</pre></style></script><script>console.log('run')</script><img src=x onerror=alert(1)>\"'&\0\x1b"
START = box(b"jP  ", b"\r\n\x87\n") + box(b"ftyp", b"jpx \0\0\0\0jpx ")


class Test(Browser):
    def __init__(self, program: str, kvjpx: str, folder: str) -> None:
        super().__init__(program, folder + "/profile")
        self.kvjpx, self.folder = kvjpx, pathlib.Path(folder)
        # Sanitizers look for libraries in the program's place.
        libraries = pathlib.Path(kvjpx).parent.parent / "lib"
        self.environment = dict(os.environ, LD_LIBRARY_PATH=str(libraries))
        self.has_codec = (libraries / "libkvj2k.so").exists()

    def report(self, file: pathlib.Path) -> str:
        page = self.folder / "page.html"
        subprocess.run([self.kvjpx, "report", str(file), "-o", str(page)], check=True,
                       env=self.environment)
        self.show(page)
        return page.read_text("utf-8")

    def is_quiet(self) -> None:
        files = [url for url in self.requests if not url.startswith("data:")]
        assert len(files) == 1 and files[0].startswith("file:"), files
        assert not self.complaints, self.complaints

    def sample(self, sample: pathlib.Path) -> None:
        """Rendered, unfolded by mouse, keys and links, unfolded when printed."""
        self.report(sample)
        assert not self.has_codec or self.ask("one('img').naturalWidth") > 0, "no picture"
        listed = subprocess.run([self.kvjpx, "ls", str(sample)], check=True, capture_output=True)
        count = len(listed.stdout.splitlines())
        assert self.ask("all('.tree details').length") == count, "not every box is in the tree"
        assert self.ask("all('.cell').every(c => c.getBoundingClientRect().width >= 8)"), "unseen"
        pairs = sorted(self.ask("all('.map > .cells > .cell:not(:has(.cells))')"
                                ".map(c => [+c.style.flexGrow, c.clientWidth])"))
        wide = [length / width for length, width in pairs if width > 9]
        assert wide and max(wide) < 1.2 * min(wide), f"widths are not in proportion: {pairs}"
        is_open = "one('.tree details').open"
        before = self.ask(is_open)
        self.click(".tree summary")
        assert self.ask(is_open) != before, "a click does not fold"
        self.ask("one('.tree summary').focus()")
        self.press("Enter", 13, "\r")
        assert self.ask(is_open) == before, "a key does not fold"
        self.click("button[value='']")
        assert self.ask("all('details[open]').length") == 0, "not all folded"
        height = "one('.tree').getBoundingClientRect().height"
        folded = self.ask(height)
        self.media("print")
        assert self.ask(height) > 3 * folded, "a print is folded"
        self.media()
        self.click(".map .cell:last-child > a")
        assert self.ask("one('details:target')?.checkVisibility()"), "the map leads nowhere"
        self.ask("document.activeElement.blur(); document.body.focus(); location.hash = ''")
        self.is_quiet()

    def skip_link(self, sample: pathlib.Path) -> None:
        self.report(sample)
        self.press("Tab", 9)
        assert self.ask("document.activeElement.className") == "skip", "no skip link"
        assert self.ask("document.activeElement.getBoundingClientRect().x") >= 0, "unseen"

    def colours(self) -> None:
        papers = set()
        for scheme in ("dark", "light"):
            self.media(scheme=scheme)
            papers.add(self.ask("getComputedStyle(document.body).backgroundColor"))
        assert len(papers) == 2, "dark is as light"

    def hostile(self) -> None:
        file = self.folder / "<script>console.log(1)<&'\".jpx"
        file.write_bytes(START + box(b"xml ", EVIL) + box(b"lbl ", b"\xff\xfe" + EVIL) +
                         box(b"<b>\"", EVIL) + box(b"asoc", box(b"lbl ", EVIL)) +
                         box(b"uuid", b"<script>" * 2 + EVIL) + box(b"url ", b"\0" * 4 + EVIL))
        page = self.report(file)
        assert page.count("<script") == 1 and page.count("<img") == 0, "something is not escaped"
        assert "console.log('run')</script><img" in self.ask("document.body.textContent")
        assert not any(ord(c) < 32 and c not in "\n\t" for c in page), "control characters"
        self.is_quiet()

    def broken(self, sample: pathlib.Path) -> None:
        file = self.folder / "broken.jpx"
        data = sample.read_bytes()
        for length in (20, len(data) // 3, len(data) - 5):
            file.write_bytes(data[:length])
            self.report(file)
            assert self.ask("all('.findings li .error').length") > 0, f"{length} bytes: nothing found"
            self.is_quiet()

    def many(self) -> None:
        file = self.folder / "many.jpx"
        file.write_bytes(START + box(b"asoc", box(b"free") * 100000) + box(b"free") * 100000)
        page = self.report(file)
        assert len(page) < 4000000, f"a page of {len(page)} bytes"
        words = self.ask("all('.tree .more, header').map(e => e.textContent).join()")
        for number in ("200\u202f003 boxes", "99\u202f750 more boxes", "99\u202f753 more boxes"):
            assert number in words, words
        self.is_quiet()


def main() -> int:
    program = shutil.which("chromium")
    if not program:
        print("skipped: there is no chromium", file=sys.stderr)
        return 77
    kvjpx, samples = sys.argv[1], pathlib.Path(sys.argv[2])
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as folder:
        test = Test(program, kvjpx, folder)
        try:
            test.sample(samples / "gradient.jp2")
            test.sample(samples / "rich.jpx")
            test.skip_link(samples / "gradient.jp2")
            test.colours()
            test.hostile()
            test.broken(samples / "rich.jpx")
            test.many()
        finally:
            test.process.kill()
            test.process.wait()
    return 0


if __name__ == "__main__":
    sys.exit(main())
