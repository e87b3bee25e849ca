#!/usr/bin/env python3
"""Writes the fuzzers' seed corpus: browsing stories encoded in the input
format that fuzz/webpage_fuzz_driver.hpp reads, the bundled replay sample when
it is there, and OTT sessions for fuzz/ott_fuzz_driver.hpp.

    fuzz/make_seeds.py            # rewrites fuzz/corpus/{webpage,ott}/
"""
import json
import pathlib
import struct

ROOT = pathlib.Path(__file__).resolve().parent
MS = 1
CODES = [0, 200, 200, 200, 204, 301, 302, 303, 304, 307, 404, 407, 500, 0x100C8, 0xFFFF, 399]
DELTAS_MS = [0, 1, 5, 30, 120, 800, 3000, 25000]
DURS_MS = [0, 1, 20, 80, 300, 1500, 7000, 70000]
FIELDS = ["host", "uri", "referHost", "referPath", "location", "contentType"]


def nearest(table, value):
    return min(range(len(table)), key=lambda i: abs(table[i] - value))


class WebPageSeed:
    """Encodes calls in the byte format the page-association driver reads."""

    def __init__(self, threads=2, timeout=0, log_level_index=0):
        self.slots = threads
        # bit 0: a third thread; bits 1-3: log level ERROR; bits 4-5: timer storing its handle
        self.out = bytearray([(1 if threads == 3 else 0) | (log_level_index << 1) | (1 << 4), 0x34])
        self.out += struct.pack("<H", timeout)

    @staticmethod
    def _slot_flow(slot, flow):
        return slot | flow << 2

    def event(self, request, slot=0, flow=0, method=1, code=0, gap_ms=30, dur_ms=20, **fields):
        self.out.append(0 if request else 12)
        self.out.append(self._slot_flow(slot, flow))
        self.out.append({1: 0, 2: 3, 3: 5}.get(method, 6))
        self.out.append(CODES.index(code) if code in CODES else 1)
        self.out.append(nearest(DELTAS_MS, gap_ms) | nearest(DURS_MS, dur_ms) << 3)
        mask = 0
        for i, name in enumerate(FIELDS):
            if fields.get(name):
                mask |= 1 << i
        self.out.append(mask)
        for name in FIELDS:
            text = fields.get(name)
            if text:
                data = text.encode()[:255]
                self.out += bytes([3, len(data)]) + data

    def req(self, host, uri, slot=0, flow=0, method=1, referer=None, **kw):
        fields = {"host": host, "uri": uri}
        if referer:
            fields["referHost"], _, path = referer.partition("/")
            fields["referPath"] = "/" + path
        self.event(True, slot, flow, method, **fields, **kw)

    def rsp(self, code, slot=0, flow=0, content="text/html", location=None, **kw):
        self.event(False, slot, flow, 0, code, contentType=content, location=location, **kw)

    def timer(self, slot=0, runs=13):
        while runs > 0:
            n = min(runs, 16)
            self.out += bytes([18, slot | (n - 1) << 2])
            runs -= n

    def release_nodes(self, slot=0, report=True):
        self.out += bytes([25, slot | (4 if report else 0)])


def news_visit(s, slot=0, flow0=0):
    s.req("www.example.com", "/", slot, flow0)
    s.rsp(200, slot, flow0, gap_ms=120)
    for i, (host, uri, ctype) in enumerate([
            ("static.example.com", "/css/site.css", "text/css"),
            ("static.example.com", "/js/app.js", "application/javascript"),
            ("img.example.net", "/img/logo.png", "image/png"),
            ("img.example.net", "/img/hero.png", "image/png"),
            ("api.example.org", "/api/v1/feed", "application/json")]):
        flow = flow0 + 1 + i % 3
        s.req(host, uri, slot, flow, referer="www.example.com/", gap_ms=5)
        s.rsp(200, slot, flow, ctype, gap_ms=30)


def stories():
    s = WebPageSeed()
    news_visit(s)
    s.timer(runs=14)
    yield "news_visit", s

    s = WebPageSeed()
    s.req("example.com", "/", 0, 0)
    s.rsp(301, 0, 0, location="http://www.example.com/")
    s.req("www.example.com", "/", 0, 1, gap_ms=120)
    s.rsp(302, 0, 1, location="https://secure.example.com/login")
    s.req("secure.example.com", "/login", 0, 2, gap_ms=120)
    s.rsp(200, 0, 2)
    s.req("secure.example.com", "/css/site.css", 0, 2, referer="secure.example.com/login")
    s.rsp(304, 0, 2, "text/css")
    s.timer(runs=14)
    yield "redirect_chain", s

    s = WebPageSeed()
    s.req("m.example.invalid", "/?ucid=4711&page=1", 0, 0)
    s.rsp(200, 0, 0)
    s.req("m.example.invalid", "/?ucid=4711&page=2", 0, 1, gap_ms=800)
    s.rsp(200, 0, 1)
    s.rsp(200, 0, 0, gap_ms=5)
    s.timer(runs=14)
    yield "ucid_pages", s

    s = WebPageSeed()
    news_visit(s)
    s.req("ads.statistic.example.com", "/pixel.gif", 0, 5, referer="www.example.com/")
    s.rsp(200, 0, 5, "image/gif")
    s.req("www.example.com", "/search?ucinput=news", 0, 6)
    s.rsp(200, 0, 6)
    s.req("video.example.org", "/player/intro.swf", 0, 7, referer="www.example.com/")
    s.rsp(200, 0, 7, "application/x-shockwave-flash")
    s.req("longpoll.social.example", "/poll", 0, 4, method=2)
    s.rsp(200, 0, 4, "application/json")
    s.timer(runs=14)
    yield "black_lists_and_heartbeat", s

    s = WebPageSeed()
    s.req("www.example.com", "/login", 0, 0, method=2)
    s.rsp(302, 0, 0, location="http://www.example.com/home")
    s.req("www.example.com", "/home", 0, 0, gap_ms=120)
    s.rsp(200, 0, 0)
    s.req("www.example.com", "/upload", 0, 1, method=3)
    s.rsp(500, 0, 1)
    s.timer(runs=14)
    yield "post_then_get", s

    s = WebPageSeed(threads=3)
    news_visit(s, 0, 0)
    news_visit(s, 1, 0)
    news_visit(s, 2, 3)
    s.timer(0, 14)
    s.timer(1, 5)
    s.release_nodes(1, report=True)
    s.timer(2, 14)
    yield "three_threads", s

    s = WebPageSeed(timeout=600)
    for i in range(34):
        s.req("site%d.example" % i, "/", 0, i % 8, gap_ms=3000)
        s.rsp(404 if i % 5 == 0 else 200, 0, i % 8)
    s.release_nodes(0, report=False)
    yield "page_pool_exhausted", s


def replay_sample():
    """The replay tool's bundled sample session (JSON lines: "req" and "rsp"
    events per flow, times in ns), with a timer run every 5 s of its clock."""
    for path in sorted((ROOT.parent / "tools" / "replay").glob("*.jsonl")):
        s = WebPageSeed()
        flows = {}
        last = None
        tick = None
        for line in path.read_text().splitlines():
            if not line.strip() or line.startswith("#"):
                continue
            ev = json.loads(line)
            if ev.get("ev") not in ("req", "rsp"):
                continue
            begin = int(ev["begin"])
            tick = begin if tick is None else tick
            while begin - tick >= 5 * 10**9:
                s.timer(runs=1)
                tick += 5 * 10**9
            gap_ms = 0 if last is None else max(0, begin - last) // 10**6
            last = begin
            dur_ms = max(0, int(ev.get("end", begin)) - begin) // 10**6
            flow = flows.setdefault(ev.get("flow"), len(flows) % 8)
            fields = {"host": ev.get("host"), "uri": ev.get("uri"), "referHost": ev.get("refer_host"),
                      "referPath": ev.get("refer_path"), "location": ev.get("location"),
                      "contentType": ev.get("ctype")}
            method = {"GET": 1, "POST": 2}.get(ev.get("method"), 3)
            s.event(ev["ev"] == "req", 0, flow, method, int(ev.get("status", 0)), gap_ms, dur_ms, **fields)
        s.timer(runs=14)
        yield "replay_" + path.stem, s


def ott_seeds():
    def trans(begin, end, payload, direction=1, finished=True):
        # kinds 1..4 of the top bits pick the small grid (begin = 10 + 10 b, end = begin + 10 l)
        b = (0 if direction == 1 else 2) | (0 if finished else 2 << 3) | 1 << 5
        return bytes([b, (begin - 10) // 10, (end - begin) // 10]) + struct.pack("<H", payload)

    def process(flow, *ts):
        return bytes([0 | flow << 3 | (0 if len(ts) == 1 else 1) << 5]) + b"".join(ts)

    def merge(flow, session):
        return bytes([3 | flow << 3 | session << 5])

    def speed(session):
        return bytes([5 | session << 3])

    yield "overlaps", bytes([6]) + process(0, trans(100, 200, 1000)) + process(0, trans(300, 400, 500)) \
        + merge(0, 0) + process(1, trans(150, 350, 700), trans(500, 600, 10, 2)) + merge(1, 0) + speed(0)
    yield "touching", bytes([6]) + process(0, trans(100, 200, 1), trans(200, 300, 2)) + merge(0, 1) \
        + process(0, trans(250, 260, 4, finished=False), trans(400, 450, 8)) + merge(0, 1) + speed(1)
    yield "pool_of_two", bytes([1]) + process(0, trans(100, 200, 1), trans(150, 250, 2)) \
        + process(1, trans(300, 400, 3)) + merge(0, 2) + process(1, trans(300, 400, 3)) + merge(1, 2) + speed(2)


def main():
    for kind in ("webpage", "ott"):
        d = ROOT / "corpus" / kind
        d.mkdir(parents=True, exist_ok=True)
        for old in d.iterdir():
            old.unlink()
    for name, seed in list(stories()) + list(replay_sample()):
        (ROOT / "corpus" / "webpage" / (name + ".bin")).write_bytes(bytes(seed.out))
    for name, data in ott_seeds():
        (ROOT / "corpus" / "ott" / (name + ".bin")).write_bytes(data)


if __name__ == "__main__":
    main()
