#!/usr/bin/env python3
"""Asks an mDNS responder directly (a legacy unicast query) for the TXT
record of a service instance and prints its strings one a line, in the
order they are on the wire.
    mdns_txt.py ADDRESS "Instance Name._ipp._tcp.local"
"""
import random
import socket
import struct
import sys


def encode_name(name):
    out = b""
    for label in name.rstrip(".").split("."):
        raw = label.encode()
        out += bytes([len(raw)]) + raw
    return out + b"\0"


def skip_name(data, pos):
    while True:
        length = data[pos]
        if length == 0:
            return pos + 1
        if length & 0xC0 == 0xC0:
            return pos + 2
        pos += 1 + length


def main():
    address, name = sys.argv[1], sys.argv[2]
    ident = random.randrange(1, 0xFFFF)
    query = struct.pack("!HHHHHH", ident, 0, 1, 0, 0, 0) + encode_name(name) + struct.pack("!HH", 16, 1)
    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sock.settimeout(3)
    sock.sendto(query, (address, 5353))
    data, _ = sock.recvfrom(9000)
    _, _, qdcount, ancount, _, _ = struct.unpack("!HHHHHH", data[:12])
    pos = 12
    for _ in range(qdcount):
        pos = skip_name(data, pos) + 4
    for _ in range(ancount):
        pos = skip_name(data, pos)
        rtype, _, _, length = struct.unpack("!HHIH", data[pos:pos + 10])
        pos += 10
        if rtype == 16:
            end = pos + length
            while pos < end:
                size = data[pos]
                print(data[pos + 1:pos + 1 + size].decode("utf-8", "replace"))
                pos += 1 + size
            return 0
        pos += length
    print("no TXT record in the answer", file=sys.stderr)
    return 1


if __name__ == "__main__":
    sys.exit(main())
