#!/usr/bin/env python3
"""Client side of feed_http.sh: talks to a running `quirepad --headless`
over real sockets and checks the page feed's HTTP server.

    feed_http.py --port N --folder DIR --pid PID --quirepad PATH --out DIR

The folder must be empty at the start. Prints one line per failed check and
ends with "feed_http: N passed, N failed"; exits 1 when anything failed.
"""

import argparse
import hashlib
import html.parser
import os
import random
import select
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time
import urllib.parse
import zlib

import feedparser

FEED_TITLE = "Quirepad Page Feed"
MAX_HEAD = 64 * 1024
IDLE_TIMEOUT = 30.0
REQUEST_TIMEOUT = 60.0
EARLY = 0.94  # Qt's coarse timers may fire up to 5% early
VALID_BOUND = 2.0  # seconds a valid request may take while the server is under load

# ----------------------------------------------------------------------------
# bookkeeping


class Checks:
    def __init__(self):
        self.passed = 0
        self.failed = 0
        self.lock = threading.Lock()

    def check(self, ok, what, detail=""):
        with self.lock:
            if ok:
                self.passed += 1
            else:
                self.failed += 1
                print(f"FAIL: {what}" + (f": {detail}" if detail else ""), flush=True)
        return ok


C = Checks()
T0 = time.monotonic()


def log(msg):
    print(f"feed_http [{time.monotonic() - T0:5.1f}s] {msg}", flush=True)


# ----------------------------------------------------------------------------
# HTTP over a plain socket


class Response:
    def __init__(self, raw, closed, elapsed, error=None):
        self.raw = raw
        self.closed = closed  # the server closed the connection
        self.elapsed = elapsed
        self.error = error
        self.status = ""
        self.headers = []
        self.body = b""
        self.complete_head = False
        end = raw.find(b"\r\n\r\n")
        if end >= 0:
            self.complete_head = True
            lines = raw[:end].decode("latin-1").split("\r\n")
            self.status = lines[0]
            for line in lines[1:]:
                name, sep, value = line.partition(": ")
                self.headers.append((name, value if sep else None))
            self.body = raw[end + 4:]

    def header(self, name):
        values = [v for n, v in self.headers if n.lower() == name.lower()]
        return values[0] if len(values) == 1 else None

    def header_names(self):
        return [n for n, _ in self.headers]

    def __repr__(self):
        return f"<{self.status!r} {len(self.body)} bytes closed={self.closed} error={self.error} raw={self.raw[:160]!r}>"


def exchange(port, data, timeout=10.0, host="127.0.0.1"):
    """Sends data and reads until the server closes (every answer carries
    Connection: close) or the timeout passes."""
    start = time.monotonic()
    raw = b""
    closed = False
    error = None
    try:
        with socket.create_connection((host, port), timeout=timeout) as s:
            s.sendall(data)
            deadline = start + timeout
            while True:
                left = deadline - time.monotonic()
                if left <= 0:
                    error = "timeout"
                    break
                s.settimeout(left)
                chunk = s.recv(262144)
                if not chunk:
                    closed = True
                    break
                raw += chunk
    except (ConnectionResetError, BrokenPipeError) as e:
        error = type(e).__name__
        closed = True
    except socket.timeout:
        error = "timeout"
    except OSError as e:
        error = f"{type(e).__name__}: {e}"
    return Response(raw, closed, time.monotonic() - start, error)


def get(port, target, host=None, extra=b""):
    req = b"GET " + target.encode("latin-1") + b" HTTP/1.1\r\n"
    if host is not None:
        req += b"Host: " + host.encode("latin-1") + b"\r\n"
    return exchange(port, req + extra + b"\r\n")


def check_head(resp, what, status, content_type, length_header=True):
    """The exact head the server writes: status line, Date, Server,
    Connection: close, the CORS header(s), Content-Type, Content-Length."""
    ok = C.check(resp.complete_head and resp.closed and resp.error is None, f"{what}: a whole answer, then the server closes", repr(resp))
    if not ok:
        return False
    ok &= C.check(resp.status == status, f"{what}: status line", resp.status)
    names = resp.header_names()
    ok &= C.check(len(names) == len(set(n.lower() for n in names)), f"{what}: no header twice", names)
    ok &= C.check(resp.header("Connection") == "close", f"{what}: Connection: close", names)
    ok &= C.check(resp.header("Content-Type") == content_type, f"{what}: Content-Type {content_type}", resp.header("Content-Type"))
    date = resp.header("Date") or ""
    ok &= C.check(len(date) > 12, f"{what}: a Date header", date)
    ok &= C.check(bool(resp.header("Server")), f"{what}: a Server header")
    ok &= C.check(all(v is not None for _, v in resp.headers), f"{what}: every header line is NAME: VALUE", resp.headers)
    length = resp.header("Content-Length")
    if length_header:
        ok &= C.check(length == str(len(resp.body)), f"{what}: Content-Length matches the body", f"{length} vs {len(resp.body)}")
    elif length is not None:
        # Files are sent until the connection closes; a length, when given,
        # must be right all the same.
        ok &= C.check(length == str(len(resp.body)), f"{what}: Content-Length matches the body", f"{length} vs {len(resp.body)}")
    return ok


def check_not_found(port, target, what, secret=None):
    resp = get(port, target, host="127.0.0.1")
    check_head(resp, what, "HTTP/1.1 404 Not Found", "text/plain; charset=utf-8")
    C.check(resp.body == b"file not found", f"{what}: body 'file not found'", resp.body[:200])
    if secret is not None:
        C.check(secret not in resp.raw, f"{what}: the secret is not in the answer")


# ----------------------------------------------------------------------------
# the files served


def write_files(folder):
    rnd = random.Random(20240611)
    pdf = b"%PDF-1.4\n" + bytes(rnd.getrandbits(8) for _ in range(3 * 1024 * 1024)) + b"\n%%EOF\n"
    files = {
        "My Page.pdf": pdf,  # a space, several MiB sent in pieces
        "Tom & Jerry.txt": b"cat and mouse\n",
        "a<b>c.html": b"<p>not markup of the index</p>\n",
        "\u00dcberblick \u2013 R\u00e9sum\u00e9.pdf": b"%PDF-1.4 utf-8 name\n",
        "100% done.txt": b"percent\n",
        "x.pdf": b"%PDF-1.4 plain x\n",
        "x.pdf?dl=1": b"%PDF-1.4 the file with a question mark\n",
        'it\'s "quoted".txt': b"quotes\n",
    }
    for name, data in files.items():
        with open(os.path.join(folder, name), "wb") as f:
            f.write(data)
    # Not files of the feed: a folder, and a file inside it.
    os.mkdir(os.path.join(folder, "sub"))
    with open(os.path.join(folder, "sub", "inner.txt"), "wb") as f:
        f.write(b"inner file\n")
    return files


def content_type(name):
    suffixes = {"txt": "text/plain", "html": "text/html", "pdf": "application/pdf"}
    for suffix, ctype in suffixes.items():
        if name.lower().endswith(suffix):
            return ctype
    return "application/octet-stream"


def sorted_names(files):
    # QDir::Name: case-sensitive comparison of UTF-16 code units.
    return sorted(files, key=lambda n: n.encode("utf-16-be"))


# ----------------------------------------------------------------------------
# the index page and the feed


class IndexParser(html.parser.HTMLParser):
    def __init__(self):
        super().__init__(convert_charrefs=True)
        self.tags = []
        self.links = []  # (href, text)
        self._href = None
        self._text = ""

    def handle_starttag(self, tag, attrs):
        self.tags.append(tag)
        if tag == "a":
            self._href = dict(attrs).get("href")
            self._text = ""

    def handle_endtag(self, tag):
        if tag == "a" and self._href is not None:
            self.links.append((self._href, self._text))
            self._href = None

    def handle_data(self, data):
        if self._href is not None:
            self._text += data


def check_index(port, files, what):
    resp = get(port, what, host="127.0.0.1")
    if not check_head(resp, f"GET {what}", "HTTP/1.1 200 OK", "text/html; charset=utf-8"):
        return None
    parser = IndexParser()
    parser.feed(resp.body.decode("utf-8"))
    names = sorted_names(files)
    C.check(set(parser.tags) <= {"html", "head", "title", "body", "ul", "li", "a"},
            f"{what}: no markup but the page's own (names are escaped)", parser.tags)
    C.check(parser.tags.count("li") == len(names), f"{what}: one list item a file", parser.tags.count("li"))
    C.check([t for _, t in parser.links] == names, f"{what}: the link texts are the names, in order",
            [t for _, t in parser.links])
    return resp.body, parser.links


def check_links_fetch(port, files, links, what):
    """Every link of a page or feed, requested as it stands, gives the file."""
    for name, path in links:
        resp = get(port, path, host="127.0.0.1")
        ctype = content_type(name)
        if check_head(resp, f"{what} {path}", "HTTP/1.1 200 OK", ctype, length_header=False):
            C.check(resp.body == files[name], f"{what} {path}: the file's bytes",
                    f"{len(resp.body)} bytes, sha256 {hashlib.sha256(resp.body).hexdigest()[:12]}")


def check_feed(port, files, target, host):
    resp = get(port, target, host=host)
    if not check_head(resp, f"GET {target} (Host {host})", "HTTP/1.1 200 OK", "application/rss+xml"):
        return []
    parsed = feedparser.parse(resp.body)
    C.check(not parsed.bozo, f"{target}: feedparser reads the feed without complaint", repr(parsed.get("bozo_exception")))
    C.check(parsed.get("version") == "rss20", f"{target}: RSS 2.0", parsed.get("version"))
    C.check(parsed.feed.get("title") == FEED_TITLE, f"{target}: channel title", parsed.feed.get("title"))
    C.check(parsed.feed.get("link") == f"http://{host}{target}", f"{target}: channel link from the Host header",
            parsed.feed.get("link"))
    names = sorted_names(files)
    entries = parsed.entries
    C.check(len(entries) == len(names), f"{target}: one item a file", f"{len(entries)} items for {len(names)} files")
    C.check([e.get("title") for e in entries] == names, f"{target}: item titles are the names, in order",
            [e.get("title") for e in entries])
    prefix = f"http://{host}/file/"
    links = []
    for entry, name in zip(entries, names):
        link = entry.get("link", "")
        ok = C.check(link.startswith(prefix), f"{target}: item link built from the Host header", link)
        C.check(entry.get("id") == link, f"{target}: guid is the link", entry.get("id"))
        if ok:
            encoded = link[len(prefix):]
            C.check(urllib.parse.unquote(encoded, errors="strict") == name and " " not in encoded and "<" not in encoded,
                    f"{target}: item link names the file, encoded", link)
            links.append((name, "/file/" + encoded))
    return links


def chromium_binary():
    for c in ("chromium", "chromium-browser", "google-chrome"):
        path = shutil.which(c)
        if path:
            return path
    return None


def chromium(args, url, timeout=90):
    with tempfile.TemporaryDirectory(prefix="feed-http-chromium.") as profile:
        cmd = [chromium_binary(), "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
               "--disable-background-networking", "--disable-component-update", "--disable-sync",
               f"--user-data-dir={profile}"] + args + [url]
        return subprocess.run(cmd, stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=timeout)


def png_pixels(path):
    """(width, height, list of pixel tuples) of an 8-bit PNG, unfiltered."""
    with open(path, "rb") as f:
        data = f.read()
    if data[:8] != b"\x89PNG\r\n\x1a\n":
        raise ValueError("not a PNG")
    pos = 8
    idat = b""
    width = height = depth = colour = None
    while pos < len(data):
        length, kind = struct.unpack(">I4s", data[pos:pos + 8])
        body = data[pos + 8:pos + 8 + length]
        pos += 12 + length
        if kind == b"IHDR":
            width, height, depth, colour, _, _, interlace = struct.unpack(">IIBBBBB", body)
            if depth != 8 or interlace != 0:
                raise ValueError(f"unsupported PNG: depth {depth}, interlace {interlace}")
        elif kind == b"IDAT":
            idat += body
        elif kind == b"IEND":
            break
    channels = {0: 1, 2: 3, 4: 2, 6: 4}[colour]
    raw = zlib.decompress(idat)
    stride = width * channels
    rows = []
    prev = bytearray(stride)
    for y in range(height):
        start = y * (stride + 1)
        kind = raw[start]
        line = bytearray(raw[start + 1:start + 1 + stride])
        for i in range(stride):
            a = line[i - channels] if i >= channels else 0
            b = prev[i]
            c = prev[i - channels] if i >= channels else 0
            if kind == 1:
                line[i] = (line[i] + a) & 0xFF
            elif kind == 2:
                line[i] = (line[i] + b) & 0xFF
            elif kind == 3:
                line[i] = (line[i] + ((a + b) >> 1)) & 0xFF
            elif kind == 4:
                p = a + b - c
                pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
                pred = a if pa <= pb and pa <= pc else (b if pb <= pc else c)
                line[i] = (line[i] + pred) & 0xFF
        rows.append(bytes(line))
        prev = line
    pixels = []
    for line in rows:
        pixels.extend(tuple(line[i:i + channels]) for i in range(0, stride, channels))
    return width, height, pixels


def check_browser(port, files, shot):
    url = f"http://127.0.0.1:{port}/index.html"
    if chromium_binary() is None:
        C.check(False, "chromium is installed")
        return
    # What the browser made of the page.
    run = chromium(["--dump-dom"], url)
    dom = run.stdout.decode("utf-8", "replace")
    parser = IndexParser()
    parser.feed(dom)
    names = sorted_names(files)
    C.check(len(parser.links) == len(names), "chromium: one link a file in the index", dom[:400])
    C.check([href for href, _ in parser.links] == index_links(port),
            "chromium: the links are those the server wrote")
    texts = [t for _, t in parser.links]
    ascii_ok = all(t == n for t, n in zip(texts, names) if n.isascii())
    C.check(ascii_ok, "chromium: ASCII names shown as they are", texts)
    wide = [(t, n) for t, n in zip(texts, names) if not n.isascii()]
    if wide:
        C.check(all(t == n for t, n in wide), "chromium: non-ASCII names shown as they are", wide)

    # A screenshot, kept for people to look at.
    os.makedirs(os.path.dirname(shot), exist_ok=True)
    if os.path.exists(shot):
        os.remove(shot)
    run = chromium([f"--screenshot={shot}", "--window-size=800,600"], url)
    if not C.check(os.path.exists(shot), "chromium: a screenshot of the index", run.stderr.decode("utf-8", "replace")[-400:]):
        return
    width, height, pixels = png_pixels(shot)
    C.check((width, height) == (800, 600), "screenshot: 800x600", (width, height))
    colours = set(p[:3] for p in pixels)
    C.check(len(colours) > 1, "screenshot: not blank", f"{len(colours)} colours")
    # Chromium draws unvisited links in #0000EE: the list is there.
    link_blue = sum(1 for p in pixels if p[0] < 40 and p[1] < 40 and p[2] > 200)
    C.check(link_blue > 50, "screenshot: link text drawn", f"{link_blue} link-blue pixels")
    log(f"screenshot {shot}: {len(colours)} colours, {link_blue} link pixels")


_index_links = {}


def index_links(port):
    return _index_links.get(port, [])


# ----------------------------------------------------------------------------
# connections left open


class Watched:
    """A connection the test leaves open (or trickles into), noting when the
    server closes it."""

    def __init__(self, port, name, first=b"", trickle=None):
        self.name = name
        self.opened = time.monotonic()
        self.closed_at = None
        self.received = b""
        self.sock = socket.create_connection(("127.0.0.1", port), timeout=5)
        if first:
            self.sock.sendall(first)
        self.trickle = trickle

    def after(self):
        return None if self.closed_at is None else self.closed_at - self.opened


def watch(conns, stop):
    """Waits on every connection at once; trickles one byte a second into
    those that trickle."""
    next_trickle = time.monotonic() + 1.0
    while not stop.is_set():
        open_conns = [c for c in conns if c.closed_at is None]
        if not open_conns:
            return
        readable, _, _ = select.select([c.sock for c in open_conns], [], [], 0.2)
        now = time.monotonic()
        for c in open_conns:
            if c.sock in readable:
                try:
                    data = c.sock.recv(4096)
                except OSError:
                    data = b""
                if data:
                    c.received += data
                else:
                    c.closed_at = now
        if now >= next_trickle:
            next_trickle = now + 1.0
            for c in open_conns:
                if c.trickle is not None and c.closed_at is None:
                    try:
                        c.sock.send(c.trickle)
                    except OSError:
                        c.closed_at = now


# ----------------------------------------------------------------------------
# hostile clients


def malformed(rnd):
    """(bytes, answer expected) for one malformed request."""
    kind = rnd.randrange(100)
    if kind < 20:  # random bytes, no end of head
        return bytes(rnd.getrandbits(8) for _ in range(rnd.randrange(1, 1500))).replace(b"\n", b" "), False
    if kind < 35:  # random bytes ending the head
        return bytes(rnd.getrandbits(8) for _ in range(rnd.randrange(0, 1500))) + b"\r\n\r\n", True
    if kind < 50:  # a request cut short
        full = b"GET /feed.xml HTTP/1.1\r\nHost: 127.0.0.1\r\nUser-Agent: cut\r\n\r\n"
        return full[:rnd.randrange(1, len(full) - 2)], False
    if kind < 62:  # odd methods
        method = rnd.choice([b"BREW", b"PUT", b"DELETE", b"get", b"GETT", b"\x00GET", b"PATCH", b"TRACE",
                             b"CONNECT", b"HEAD", b"PRI", bytes(rnd.getrandbits(7) | 0x21 for _ in range(rnd.randrange(1, 12)))])
        return method + b" /feed.xml HTTP/1.1\r\nHost: h\r\n\r\n", True
    if kind < 72:  # request lines with fewer than three words
        return rnd.choice([b"GET\r\n\r\n", b"GET /\r\n\r\n", b"POST /x\n\n", b"OPTIONS\r\n\r\n",
                           b"GET /index.html\r\nHost: h\r\n\r\n"]), True
    if kind < 74:  # a header line past the head limit
        return b"GET / HTTP/1.1\r\nX-Huge: " + b"A" * (MAX_HEAD + rnd.randrange(1, 4096)) + b"\r\n\r\n", True
    if kind < 86:  # binary: a TLS hello, NULs, high bytes
        return rnd.choice([b"\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03", b"\x00" * 64, b"\xff\xfe\xfd" * 40,
                           b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n"]) + bytes(rnd.getrandbits(8) for _ in range(64)) + b"\r\n\r\n", True
    # a request line and junk headers
    lines = [b"GET /feed.xml HTTP/1.1"]
    for _ in range(rnd.randrange(1, 30)):
        junk = bytes(rnd.getrandbits(7) | 0x20 for _ in range(rnd.randrange(0, 80)))
        # (no digits after a Content-Length: a body would be awaited)
        lines.append(rnd.choice([b"Host: " + junk, b": " + junk, b"X: a: b: c" + junk, b"Content-Length: -1" + junk,
                                 b"Content-Length: 0;" + junk, b"Transfer-Encoding: chunked", b"\t" + junk, b"Host" + junk]))
    return b"\r\n".join(lines) + b"\r\n\r\n", True


def well_formed_answer(resp):
    if not resp.complete_head:
        return False
    if resp.status not in ("HTTP/1.1 200 OK", "HTTP/1.1 404 Not Found"):
        return False
    return resp.header("Connection") == "close" and resp.header("Content-Length") == str(len(resp.body))


class Hammer(threading.Thread):
    def __init__(self, port, seed, count):
        super().__init__(daemon=True)
        self.port, self.rnd, self.count = port, random.Random(seed), count
        self.sent = 0
        self.unanswered = []
        self.bad = []

    def run(self):
        for _ in range(self.count):
            data, answered = malformed(self.rnd)
            self.sent += 1
            if answered:
                resp = exchange(self.port, data, timeout=10)
                huge = len(data) > MAX_HEAD
                if huge and resp.error in ("ConnectionResetError", "BrokenPipeError") and not resp.raw:
                    continue  # refused while still sending: closed is what counts
                if resp.error == "timeout":
                    self.unanswered.append(data[:80])
                elif not well_formed_answer(resp) and not (huge and resp.closed and resp.raw.startswith(b"HTTP/1.1 404 Not Found")):
                    self.bad.append((data[:80], resp.raw[:200], resp.error))
            else:
                # Sent and gone: with a reset now and then instead of a close.
                try:
                    with socket.create_connection(("127.0.0.1", self.port), timeout=5) as s:
                        s.sendall(data)
                        if self.rnd.randrange(4) == 0:
                            s.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
                except OSError as e:
                    self.bad.append((data[:80], b"", f"connect/send: {e}"))


class Prober(threading.Thread):
    """Valid requests one after another; each one's time is noted."""

    def __init__(self, port, files, stop):
        super().__init__(daemon=True)
        self.port, self.files, self.stop = port, files, stop
        self.times = []
        self.failures = []

    def run(self):
        targets = ["/feed.xml", "/index.html", "/file/Tom%20%26%20Jerry.txt", "/"]
        i = 0
        while not self.stop.is_set():
            target = targets[i % len(targets)]
            i += 1
            resp = get(self.port, target, host="127.0.0.1")
            self.times.append(resp.elapsed)
            if not (resp.closed and resp.status == "HTTP/1.1 200 OK" and resp.error is None):
                self.failures.append((target, repr(resp)))
            elif target.startswith("/file/") and resp.body != self.files["Tom & Jerry.txt"]:
                self.failures.append((target, "wrong bytes"))
            time.sleep(0.02)


def alive(pid):
    try:
        with open(f"/proc/{pid}/stat") as f:
            return f.read().split(") ")[1][0] not in "ZX"
    except OSError:
        return False


# ----------------------------------------------------------------------------


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--port", type=int, required=True)
    ap.add_argument("--folder", required=True)
    ap.add_argument("--pid", type=int, required=True)
    ap.add_argument("--quirepad", required=True)
    ap.add_argument("--out", required=True)
    ap.add_argument("--malformed", type=int, default=10000)
    args = ap.parse_args()
    port, folder = args.port, args.folder

    # Connections the server must drop by itself: a client trickling a byte a
    # second (only the whole-request limit ends it), one that never says a
    # word, one that stops halfway through its head.
    slow_stop = threading.Event()
    slowloris = Watched(port, "slowloris", b"GET /feed.xml HTTP/1.1\r\nX-Slow: ", trickle=b"a")
    silent = Watched(port, "silent")
    halfway = Watched(port, "halfway", b"GET /index.html HTTP/1.1\r\nHost: 127.0.0.1\r\n")
    slow_watch = threading.Thread(target=watch, args=([slowloris, silent, halfway], slow_stop), daemon=True)
    slow_watch.start()

    # An empty folder.
    C.check(os.listdir(folder) == [], "the feed folder starts empty", os.listdir(folder))
    resp = get(port, "/feed.xml", host="127.0.0.1")
    if check_head(resp, "empty feed", "HTTP/1.1 200 OK", "application/rss+xml"):
        parsed = feedparser.parse(resp.body)
        C.check(not parsed.bozo and parsed.feed.get("title") == FEED_TITLE, "empty feed: a valid feed", repr(parsed.get("bozo_exception")))
        C.check(len(parsed.entries) == 0, "empty feed: no items", len(parsed.entries))
    resp = get(port, "/index.html", host="127.0.0.1")
    if check_head(resp, "empty index", "HTTP/1.1 200 OK", "text/html; charset=utf-8"):
        C.check(b"<LI>" not in resp.body.upper() and b"</UL>" in resp.body.upper(), "empty index: an empty list", resp.body)
    log("empty folder checked")

    # Files, and a secret beside the folder that no request may reach.
    files = write_files(folder)
    secret = b"SECRET-" + os.urandom(8).hex().encode()
    secret_path = os.path.join(os.path.dirname(folder), "secret.txt")
    with open(secret_path, "wb") as f:
        f.write(secret)

    # Routes.
    resp = get(port, "/file/My%20Page.pdf", host="127.0.0.1")
    if check_head(resp, "/file/My%20Page.pdf", "HTTP/1.1 200 OK", "application/pdf", length_header=False):
        C.check(resp.body == files["My Page.pdf"], "/file/My%20Page.pdf: byte-identical",
                f"{len(resp.body)} of {len(files['My Page.pdf'])} bytes")
    resp = get(port, "/file/x.pdf?dl=1", host="127.0.0.1")
    if check_head(resp, "/file/x.pdf?dl=1", "HTTP/1.1 200 OK", "application/octet-stream", length_header=False):
        C.check(resp.body == files["x.pdf?dl=1"], "/file/x.pdf?dl=1: the file named 'x.pdf?dl=1', not x.pdf", resp.body)
    resp = get(port, "/file/x.pdf", host="127.0.0.1")
    if check_head(resp, "/file/x.pdf", "HTTP/1.1 200 OK", "application/pdf", length_header=False):
        C.check(resp.body == files["x.pdf"], "/file/x.pdf: x.pdf", resp.body)
    check_not_found(port, "/file/My%20Page.pdf?dl=1", "a query names another file")
    check_not_found(port, "/file/missing.pdf", "missing file")
    check_not_found(port, "/file/My Page.pdf", "raw space ends the target")
    resp = get(port, "/file/100%25%20done.txt", host="127.0.0.1")
    if check_head(resp, "/file/100%25%20done.txt", "HTTP/1.1 200 OK", "text/plain", length_header=False):
        C.check(resp.body == files["100% done.txt"], "a name with '%'", resp.body)

    first = check_index(port, files, "/index.html")
    second = check_index(port, files, "/anything.html")
    if first and second:
        C.check(first[0] == second[0], "/anything.html is the same page as /index.html")
    if first:
        links = [(n, href) for n, (href, _) in zip(sorted_names(files), first[1])]
        _index_links[port] = [href for _, href in links]
        for name, href in links:
            C.check(href.startswith("/file/") and urllib.parse.unquote(href[6:]) == name, f"index link for {name!r}", href)
        check_links_fetch(port, files, links, "index link")
    log("routes and index checked")

    for target, host in (("/", "127.0.0.1:%d" % port), ("/feed.xml", "feeds.example:8123"), ("/feed.xml", "[::1]:9")):
        links = check_feed(port, files, target, host)
        if host.startswith("127.0.0.1"):
            check_links_fetch(port, files, links, "feed link")
    log("feed checked with feedparser")

    check_browser(port, files, os.path.join(args.out, "screenshots", "feed-index.png"))
    log("index checked in chromium")

    # Paths out of the folder.
    for target in ["/file/..%2F..%2Fetc%2Fpasswd", "/file/..%2Fsecret.txt", "/file/%2e%2e%2fsecret.txt",
                   "/file/%2E%2E/secret.txt", "/file/../secret.txt", "/file/..%5csecret.txt", "/file/..\\secret.txt",
                   "/file/%252e%252e%252fsecret.txt", "/file/%252E%252E%255Csecret.txt", "/file/..%252fsecret.txt",
                   "/file/%2Fetc%2Fpasswd", "/file//etc/passwd", "/file/%2F%2Fetc%2Fpasswd", "/file/%C0%AE%C0%AE%2Fsecret.txt",
                   "/file/My%20Page.pdf%00", "/file/My%20Page.pdf%00.txt", "/file/%00", "/file/..", "/file/.", "/file/",
                   "/file/sub", "/file/sub/inner.txt", "/file/sub%2Finner.txt", "/file/%2e%2e", f"/file/{'%2e%2e%2f' * 12}etc%2fpasswd"]:
        check_not_found(port, target, f"traversal {target}", secret)
    for target in ["http://127.0.0.1/file/..%2Fsecret.txt", "/index.html/../file/..%2fsecret.txt", "/../secret.txt"]:
        resp = get(port, target, host="127.0.0.1")
        C.check(resp.closed and resp.status.startswith("HTTP/1.1 ") and secret not in resp.raw, f"traversal {target}: answered, no secret", repr(resp))
    log("traversal refused")

    # Head limits: 64 KiB is served, one byte more is refused and closed.
    def padded(total):
        start = b"GET /feed.xml HTTP/1.1\r\nHost: 127.0.0.1\r\nX-Pad: "
        return start + b"p" * (total - len(start) - 4) + b"\r\n\r\n"
    resp = exchange(port, padded(MAX_HEAD))
    check_head(resp, "a head of exactly 64 KiB", "HTTP/1.1 200 OK", "application/rss+xml")
    for what, data in (("a head one byte over 64 KiB", padded(MAX_HEAD + 1)),
                       ("70 KiB without an end of head", b"GET / HTTP/1.1\r\nX-Pad: " + b"q" * (70 * 1024)),
                       ("4 MiB of head", b"GET / HTTP/1.1\r\nX-Pad: " + b"r" * (4 << 20) + b"\r\n\r\n")):
        resp = exchange(port, data, timeout=5)
        C.check(resp.closed, f"{what}: closed by the server", repr(resp))
        C.check(resp.elapsed < VALID_BOUND, f"{what}: closed at once", f"{resp.elapsed:.2f}s")
        C.check(b"200 OK" not in resp.raw, f"{what}: not served")
        if resp.raw:
            C.check(resp.status == "HTTP/1.1 404 Not Found" and resp.body == b"request head too large",
                    f"{what}: 404 request head too large", repr(resp))
    resp = exchange(port, b"GET /\r\n\r\n")
    check_head(resp, "a two-word request line", "HTTP/1.1 404 Not Found", "text/plain; charset=utf-8")
    C.check(resp.body == b"bad request", "a two-word request line: 'bad request'", resp.body)
    resp = exchange(port, b"POST / HTTP/1.1\r\nContent-Length: 16777217\r\n\r\n")
    check_head(resp, "a body over 16 MiB", "HTTP/1.1 404 Not Found", "text/plain; charset=utf-8")
    C.check(resp.body == b"request body too large", "a body over 16 MiB: refused", resp.body)
    log("limits checked")

    # Many idle connections, kept open through the flood below.
    idle = []
    for _ in range(200):
        idle.append(Watched(port, "idle"))
    idle_stop = threading.Event()
    idle_watch = threading.Thread(target=watch, args=(idle, idle_stop), daemon=True)
    idle_watch.start()
    resp = get(port, "/feed.xml", host="127.0.0.1")
    C.check(resp.status == "HTTP/1.1 200 OK" and resp.elapsed < VALID_BOUND,
            "a valid request beside 200 idle connections", repr(resp))

    # 10,000 malformed requests from four clients at once, while a fifth
    # keeps asking for real pages.
    stop = threading.Event()
    prober = Prober(port, files, stop)
    hammers = [Hammer(port, 1000 + i, args.malformed // 4 + (1 if i < args.malformed % 4 else 0)) for i in range(4)]
    started = time.monotonic()
    prober.start()
    for h in hammers:
        h.start()
    for h in hammers:
        h.join(timeout=300)
    stop.set()
    prober.join(timeout=30)
    took = time.monotonic() - started
    sent = sum(h.sent for h in hammers)
    C.check(all(not h.is_alive() for h in hammers), "the malformed requests all went out in time")
    C.check(sent == args.malformed, f"{args.malformed} malformed requests sent", sent)
    unanswered = [u for h in hammers for u in h.unanswered]
    bad = [b for h in hammers for b in h.bad]
    C.check(not unanswered, "every malformed request with a whole head was answered", unanswered[:5])
    C.check(not bad, "every answer to a malformed request was a well-formed 200 or 404", bad[:5])
    times = sorted(prober.times)
    C.check(len(times) >= 20, "valid requests went on during the flood", len(times))
    C.check(not prober.failures, "every valid request during the flood was answered", prober.failures[:5])
    if times:
        C.check(times[-1] < VALID_BOUND, f"every valid request during the flood took under {VALID_BOUND}s",
                f"slowest {times[-1]:.3f}s")
        log(f"{sent} malformed requests in {took:.1f}s; {len(times)} valid ones meanwhile, "
            f"median {times[len(times) // 2] * 1000:.1f} ms, slowest {times[-1] * 1000:.1f} ms")
    C.check(alive(args.pid), "the program lives after the flood")

    # The dropped connections: idle ones after the idle timeout, the trickle
    # after the whole-request limit.
    deadline = time.monotonic() + 80
    while time.monotonic() < deadline and any(c.closed_at is None for c in idle + [slowloris, silent, halfway]):
        time.sleep(0.25)
    slow_stop.set()
    idle_stop.set()
    for c in [silent, halfway] + idle:
        after = c.after()
        if not C.check(after is not None and IDLE_TIMEOUT * EARLY <= after <= IDLE_TIMEOUT + 10,
                       f"{c.name} connection closed after the idle timeout", after):
            break
    for c in [silent, halfway] + idle:
        if c.received:
            C.check(False, f"{c.name} connection got no answer", c.received[:100])
            break
    after = slowloris.after()
    C.check(after is not None and REQUEST_TIMEOUT * EARLY <= after <= REQUEST_TIMEOUT + 10,
            "trickling connection closed by the whole-request limit", after)
    C.check(slowloris.received == b"", "trickling connection got no answer", slowloris.received[:100])
    log(f"idle connections closed after {min(c.after() or 0 for c in idle):.1f}-{max(c.after() or 0 for c in idle):.1f}s, "
        f"silent {silent.after()}, halfway {halfway.after()}, trickle {slowloris.after()}")
    for c in idle + [slowloris, silent, halfway]:
        c.sock.close()

    # Still there, still right.
    C.check(alive(args.pid), "the program is alive at the end")
    resp = get(port, "/file/My%20Page.pdf", host="127.0.0.1")
    C.check(resp.status == "HTTP/1.1 200 OK" and resp.body == files["My Page.pdf"], "a file served at the end", repr(resp))

    # A new port, told to the running instance.
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        new_port = s.getsockname()[1]
    run = subprocess.run([args.quirepad, "defaults", "write", "HTTPServer_serverPort", str(new_port)],
                         stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=30)
    C.check(run.returncode == 0, "defaults write HTTPServer_serverPort", run.stdout)
    url = ""
    for _ in range(50):
        url = subprocess.run([args.quirepad, "feed", "url"], stdout=subprocess.PIPE, timeout=30).stdout.decode().strip()
        if url == f"http://127.0.0.1:{new_port}/":
            break
        time.sleep(0.1)
    C.check(url == f"http://127.0.0.1:{new_port}/", "feed url follows the new port", url)
    resp = get(new_port, "/feed.xml", host=f"127.0.0.1:{new_port}")
    if check_head(resp, "feed on the new port", "HTTP/1.1 200 OK", "application/rss+xml"):
        C.check(len(feedparser.parse(resp.body).entries) == len(files), "feed on the new port lists the files")
    resp = get(port, "/feed.xml", host="127.0.0.1")
    C.check(resp.error is not None and not resp.raw, "the old port is closed", repr(resp))
    C.check(alive(args.pid), "the program is alive after the restart")
    log("server restarted on the new port")

    print(f"feed_http: {C.passed} passed, {C.failed} failed", flush=True)
    return 1 if C.failed else 0


if __name__ == "__main__":
    sys.exit(main())
