"""Tries the site as a reader would: follows its links, and looks at its pages in headless Chromium, over its debugging pipe."""
import base64
import fcntl
import html.parser
import json
import os
import re
import select
import shutil
import subprocess
import sys
import tempfile
import time
import urllib.parse

WIDTHS = (400, 1400)  # Pixels: a telephone, a desktop.
SHOWN = ("index.html", "page_docs_tour_02_calls.html")  # Of these pictures are taken.
SECONDS = 100  # Pages of the reference that it does not come to meanwhile, on a machine that is busy, are counted and told.
REFERENCE = ("class", "struct", "namespace", "functions", "globals")  # Pages that all look alike.
# Of the page that is open: its width, the smallest letters of its text, the least contrast of letters to what is behind them, and what is in the way.
MEASURE = r"""(() => {
    const number = color => color.match(/[\d.]+/g).map(Number);
    const linear = part => (part /= 255) <= 0.03928 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4;
    const luminance = color => { const [r, g, b] = number(color); return 0.2126 * linear(r) + 0.7152 * linear(g) + 0.0722 * linear(b); };
    const behind = node => {  // Colours that let the one below through are laid upon it.
        const layers = [];
        for (; node; node = node.parentElement) {
            const [r, g, b, alpha = 1] = number(getComputedStyle(node).backgroundColor);
            if (alpha > 0) layers.unshift([r, g, b, alpha]);
            if (alpha === 1) break;
        }
        const seen = layers.reduce((below, [r, g, b, alpha]) => [r, g, b].map((part, i) => part * alpha + below[i] * (1 - alpha)), [255, 255, 255]);
        return `rgb(${seen})`;
    };
    let smallest = 100, contrast = 21, worst = "";
    const text = document.querySelector(".contents") || document.body;
    const walk = document.createTreeWalker(text, NodeFilter.SHOW_TEXT);
    while (walk.nextNode()) {
        const node = walk.currentNode.parentElement;
        if (!walk.currentNode.data.trim() || !node.checkVisibility() || node.closest("svg, script, style")) continue;
        const style = getComputedStyle(node);
        smallest = Math.min(smallest, parseFloat(style.fontSize));
        const [a, b] = [luminance(style.color), luminance(behind(node))].sort((x, y) => y - x);
        const ratio = (a + 0.05) / (b + 0.05);
        if (ratio < contrast) { contrast = ratio; worst = walk.currentNode.data.trim().slice(0, 40); }
    }
    const wide = [...text.querySelectorAll("*")].filter(node => node.getBoundingClientRect().right > innerWidth + 1
        && !node.closest("pre, .fragment, .memproto, table, .tabs, #nav-tree, #nav-path")).map(node => node.tagName + "." + node.className);
    const doc = document.getElementById("doc-content") || document.body;
    return { page: Math.max(document.documentElement.scrollWidth, document.body.scrollWidth), inner: innerWidth,
             content: doc.scrollWidth - doc.clientWidth, smallest, contrast, worst, wide: wide.slice(0, 2) };
})()"""


class Links(html.parser.HTMLParser):
    def __init__(self, text):
        super().__init__()
        self.targets, self.names = [], set()
        self.feed(text)

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if name in ("href", "src") and value:
                self.targets.append(value)
            elif name == "id" or (tag == "a" and name == "name"):
                self.names.add(value)


def dead_links(site):
    """Links and anchors within the site that lead nowhere."""
    pages = {file.name: Links(file.read_text()) for file in site.glob("*.html")}
    for name, page in pages.items():
        for target in dict.fromkeys(page.targets):
            url = urllib.parse.urlparse(target)
            path, part = urllib.parse.unquote(url.path) or name, urllib.parse.unquote(url.fragment)
            if url.scheme or url.netloc:
                continue
            if not (site / path).exists():
                yield f"{name}: no such file: {target}"
            elif part and path in pages and part not in pages[path].names:
                yield f"{name}: no such place: {target}"
    for script in site.glob("search/*.js"):
        for path, part in re.findall(r"'\.\./([^'#]+)#?([^']*)'", script.read_text()):
            if path not in pages or part and part not in pages[path].names:
                yield f"search/{script.name}: no such place: {path}#{part}"


def pipe():
    """Its ends have high numbers: the low ones are for Chromium."""
    low = os.pipe()
    high = [fcntl.fcntl(end, fcntl.F_DUPFD_CLOEXEC, 10) for end in low]
    for end in low:
        os.close(end)
    return high


class Browser:
    """Chromium without a window, asked over a pipe."""

    def __enter__(self):
        self._home = tempfile.mkdtemp()
        to_read, self._to = pipe()
        self._from, to_write = pipe()
        command = [shutil.which("chromium"), "--headless=new", "--no-sandbox", "--disable-gpu", "--hide-scrollbars", "--no-first-run",
                   "--allow-file-access-from-files", "--remote-debugging-pipe", f"--user-data-dir={self._home}", "about:blank"]
        # Chromium reads from descriptor 3 and writes to 4.
        shell = ["bash", "-c", f'exec 3<&{to_read} 4>&{to_write} {to_read}<&- {to_write}>&-; exec "$@"', "bash", *command]
        self._process = subprocess.Popen(shell, pass_fds=(to_read, to_write), stderr=subprocess.DEVNULL)
        os.close(to_read)
        os.close(to_write)
        self._rest, self._number, self._events = b"", 0, []
        target = self.ask("Target.createTarget", url="about:blank")["targetId"]
        self._session = self.ask("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        self.ask("Page.enable")
        return self

    def __exit__(self, *_):
        self._process.terminate()
        self._process.wait()
        os.close(self._to)
        os.close(self._from)
        shutil.rmtree(self._home, ignore_errors=True)

    def _next(self):
        while b"\0" not in self._rest:
            if not select.select([self._from], [], [], 30)[0]:
                raise TimeoutError("Chromium does not answer")
            self._rest += os.read(self._from, 1 << 20) or b'{"method": "Ended", "error": "Chromium has ended", "id": -1}\0'
        message, self._rest = self._rest.split(b"\0", 1)
        return json.loads(message)

    def ask(self, method, **parameters):
        self._number += 1
        message = {"id": self._number, "method": method, "params": parameters}
        if getattr(self, "_session", None):
            message["sessionId"] = self._session
        os.write(self._to, json.dumps(message).encode() + b"\0")
        while (answer := self._next()).get("id") != self._number:
            if answer.get("id") == -1:
                raise RuntimeError(answer["error"])
            self._events.append(answer.get("method"))
        if "error" in answer:
            raise RuntimeError(f"{method}: {answer['error']}")
        return answer["result"]

    def resize(self, width):
        self.ask("Emulation.setDeviceMetricsOverride", width=width, height=900, deviceScaleFactor=1, mobile=width < 600)

    def open(self, url):
        self._events.clear()
        self.ask("Page.navigate", url=url)
        while "Page.loadEventFired" not in self._events:
            self._events.append(self._next().get("method"))

    def value(self, expression):
        return self.ask("Runtime.evaluate", expression=expression, returnByValue=True)["result"]["value"]

    def picture(self, file):
        file.write_bytes(base64.b64decode(self.ask("Page.captureScreenshot", format="png")["data"]))


def unreadable(name, width, seen):
    if seen["page"] > seen["inner"] or seen["content"] > 0:
        yield f"{name}: wider than {width} pixels: {max(seen['page'], seen['inner'] + seen['content'])} ({' '.join(seen['wide'])})"
    if seen["smallest"] < 11:
        yield f"{name}: letters of {seen['smallest']} pixels at a width of {width}"
    if seen["contrast"] < 4.5:
        yield f"{name}: a contrast of {seen['contrast']:.1f} at a width of {width}: {seen['worst']}"


def check(site, pictures):
    """Gives what is wrong; pictures of two pages go to a folder."""
    faults = list(dead_links(site))
    pictures.mkdir(parents=True, exist_ok=True)
    end = time.monotonic() + SECONDS
    pages = sorted((file.name for file in site.glob("*.html")), key=lambda name: (name.startswith(REFERENCE), name))
    with Browser() as browser:
        for name in pages:
            browser.open(f"file://{site / name}")
            for width in WIDTHS:
                browser.resize(width)
                faults += unreadable(name, width, browser.value(MEASURE))
                if name in SHOWN:
                    browser.picture(pictures / f"{name.removesuffix('.html')}-{width}.png")
            if time.monotonic() > end and name.startswith(REFERENCE):
                print(f"{len(pages) - pages.index(name) - 1} of {len(pages)} pages were not looked at in {SECONDS} s", file=sys.stderr)
                break
    return faults
