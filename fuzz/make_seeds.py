#!/usr/bin/env python3
"""Builds seed inputs for the fuzz targets from real traffic.

sip: every SIP capture becomes seeds of up to eight consecutive datagrams (the input format of
fuzz_sip.cpp), and every torture message a one-datagram seed. Needs tshark for the captures.

Usage: fuzz/make_seeds.py sip OUT_DIR CAPTURE_OR_MESSAGE...
"""
import hashlib
import pathlib
import subprocess
import sys


def record(flags: int, payload: bytes) -> bytes:
    payload = payload[:0xFFFF]
    return bytes([flags, len(payload) >> 8, len(payload) & 0xFF]) + payload


def sip_payloads(capture: pathlib.Path) -> list:
    out = subprocess.run(
        ["tshark", "-r", str(capture), "-Y", "sip && udp", "-T", "fields", "-e", "udp.payload"],
        check=True, capture_output=True, text=True).stdout
    return [bytes.fromhex(line.replace(":", "")) for line in out.split() if line]


def write(out_dir: pathlib.Path, data: bytes) -> None:
    name = hashlib.sha1(data).hexdigest()
    (out_dir / name).write_bytes(data)


def main() -> int:
    kind, out_dir, inputs = sys.argv[1], pathlib.Path(sys.argv[2]), sys.argv[3:]
    if kind != "sip":
        print(f"unknown target {kind}", file=sys.stderr)
        return 2
    out_dir.mkdir(parents=True, exist_ok=True)
    # Policy byte: channels open, codec veto, hold, close; log level 5 so log texts get built.
    policy, level = 0x01 | 0x04 | 0x10 | 0x80, 5
    for name in inputs:
        path = pathlib.Path(name)
        if path.suffix in (".pcap", ".pcapng"):
            datagrams = sip_payloads(path)
            for start in range(0, len(datagrams), 8):
                seed = bytes([policy, level])
                for i, payload in enumerate(datagrams[start:start + 8]):
                    seed += record(2 if i % 2 == 0 else 3, payload)
                write(out_dir, seed)
        else:
            write(out_dir, bytes([policy, level]) + record(2, path.read_bytes()))
    return 0


if __name__ == "__main__":
    sys.exit(main())
