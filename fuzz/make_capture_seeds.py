#!/usr/bin/env python3
"""Writes the capture fuzzers' seed corpus in the input formats that
fuzz/capture_fuzz_driver.hpp reads.

    fuzz/make_capture_seeds.py    # rewrites fuzz/corpus/capture_{tcp,http}/
"""
import pathlib
import struct

ROOT = pathlib.Path(__file__).resolve().parent
SYN, ACK, PSH, FIN, RST = 2, 4, 8, 16, 32  # control bits as the TCP driver reads them

GET = b"GET /a HTTP/1.1\r\nHost: h.example\r\nReferer: http://h.example/\r\n\r\n"
OK = b"HTTP/1.1 200 OK\r\nContent-Type: text/html\r\nContent-Length: 5\r\n\r\nhello"
CHUNKED = b"HTTP/1.1 302 Found\r\nLocation: /b\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nabcd\r\n0\r\n\r\n"


def segment(client, flags, offset, payload, ms=1):
    return bytes([(1 if client else 0) | flags]) + struct.pack(">HBB", offset, len(payload), ms) + payload


def handshake():
    return segment(True, SYN, 0, b"") + segment(False, SYN | ACK, 0, b"") + segment(True, ACK, 0, b"")


def close(client_at, server_at):
    return segment(True, FIN | ACK, client_at, b"") + segment(False, FIN | ACK, server_at, b"")


def tcp_seeds():
    yield "simple_page", bytes([0]) + handshake() + segment(True, PSH | ACK, 0, GET) + \
        segment(False, PSH | ACK, 0, OK) + close(len(GET), len(OK))
    a, b = GET[:20], GET[20:]
    yield "out_of_order_v6_sll", bytes([0x42]) + handshake() + segment(True, PSH | ACK, 20, b) + \
        segment(True, PSH | ACK, 0, a) + segment(True, PSH | ACK, 0, a) + \
        segment(False, PSH | ACK, 0, CHUNKED) + segment(False, RST, len(CHUNKED), b"")
    yield "pipelined_raw", bytes([1]) + handshake() + segment(True, PSH | ACK, 0, GET + GET) + \
        segment(False, PSH | ACK, 0, OK + OK)
    # the same page as a whole capture file (Ethernet, IPv4)
    frames = []
    for client, flags, seq, ack, payload in [(True, 0x02, 1000, 0, b""), (False, 0x12, 5000, 1001, b""),
                                             (True, 0x18, 1001, 5001, GET), (False, 0x18, 5001, 1001 + len(GET), OK)]:
        src, dst = (bytes([10, 0, 0, 2]), bytes([93, 184, 216, 34]))[:: 1 if client else -1]
        ports = (40000, 80) if client else (80, 40000)
        tcp = struct.pack(">HHIIHHHH", *ports, seq, ack, 5 << 12 | flags, 65535, 0, 0) + payload
        ip = struct.pack(">BBHHHBBH", 0x45, 0, 20 + len(tcp), 0, 0, 64, 6, 0) + src + dst
        frames.append(b"\x02" * 12 + b"\x08\x00" + ip + tcp)
    pcap = struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1)
    for i, f in enumerate(frames):
        pcap += struct.pack("<IIII", 1, i * 1000, len(f), len(f)) + f
    yield "whole_file", bytes([0x80]) + pcap


def record(client, payload, gap=False):
    return bytes([(1 if client else 0) | (2 if gap else 0)]) + struct.pack("<H", len(payload)) + payload


def http_seeds():
    yield "pipelined_chunked", bytes([2]) + record(True, GET + b"HEAD /h HTTP/1.1\r\nHost: h\r\n\r\n" + GET) + \
        record(False, CHUNKED + b"HTTP/1.1 200 OK\r\nContent-Length: 99\r\n\r\n") + \
        record(False, b"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 304 Not Modified\r\n\r\n")
    yield "gap_then_next", bytes([2]) + record(True, GET + GET) + \
        record(False, b"HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\nabc") + \
        record(False, b"tail of it" + OK, gap=True)
    yield "joined_mid_body", bytes([1]) + record(False, b"rest of a body\r\n") + record(True, GET) + \
        record(False, b"HTTP/1.0 200 OK\r\n\r\nuntil the close")
    yield "tls_hello", bytes([0]) + record(True, bytes.fromhex("160301002f0100002b0303") + b"r" * 32 +
                                           bytes.fromhex("000002130101000000"))


def main():
    for name, seeds in (("capture_tcp", tcp_seeds()), ("capture_http", http_seeds())):
        out = ROOT / "corpus" / name
        out.mkdir(parents=True, exist_ok=True)
        for old in out.glob("*.bin"):
            old.unlink()
        for seed_name, data in seeds:
            (out / f"{seed_name}.bin").write_bytes(data)


if __name__ == "__main__":
    main()
