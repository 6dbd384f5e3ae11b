#!/usr/bin/env python3
"""Builds seed inputs for the fuzz targets from real traffic.

sip: every SIP capture becomes seeds of up to eight consecutive datagrams (the input format of
fuzz_sip.cpp), and every torture message a one-datagram seed. Needs tshark for the captures.
h225: every call file (lines "frame O|D h225|h245 hex") becomes seeds of up to eight PDUs in
order; h245: the H.245 PDUs of those files and single H.245 PDU files; ras: RAS message files
in sequences of four; header: each Q.931 PDU once as a get and once as a set; per_h225, per_ras,
per_h245: single PDU files as they are. sip-long: SIP messages of about 64 KB in the shapes that
once took time growing faster than their size (no inputs; written as long-<shape> in OUT_DIR).

Usage: fuzz/make_seeds.py TARGET OUT_DIR INPUT...
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


# Policy byte: channels open, codec veto, hold, close; log level 5 so log texts get built.
POLICY, LEVEL = 0x01 | 0x04 | 0x10 | 0x80, 5


def call_records(path: pathlib.Path) -> list:
    """(flags, pdu) per line of a call file; flags: bit 0 originator, bit 2 H.245."""
    records = []
    for line in path.read_text().splitlines():
        fields = line.split()
        if len(fields) != 4:
            continue
        _, side, kind, hexpdu = fields
        flags = (1 if side == "O" else 0) | (4 if kind == "h245" else 0)
        records.append((flags, bytes.fromhex(hexpdu)))
    return records


def write_sequences(out_dir: pathlib.Path, records: list, length: int) -> None:
    for start in range(0, len(records), length):
        seed = bytes([POLICY, LEVEL])
        for flags, payload in records[start:start + length]:
            seed += record(flags, payload)
        write(out_dir, seed)


def asn1_seeds(kind: str, out_dir: pathlib.Path, inputs: list) -> None:
    paths = [pathlib.Path(name) for name in inputs]
    if kind in ("per_h225", "per_ras", "per_h245"):
        for path in paths:
            write(out_dir, path.read_bytes())
    elif kind == "h225":
        for path in paths:
            if path.suffix == ".txt":
                write_sequences(out_dir, call_records(path), 8)
            else:
                write_sequences(out_dir, [(1, path.read_bytes())], 8)
    elif kind == "h245":
        records = []
        for path in paths:
            if path.suffix == ".txt":
                records += [(f & 1, p) for f, p in call_records(path) if f & 4]
            else:
                records.append((1, path.read_bytes()))
        write_sequences(out_dir, records, 4)
    elif kind == "ras":
        write_sequences(out_dir, [(1 | 4, p.read_bytes()) for p in paths], 4)
    elif kind == "header":
        for path in paths:
            records = call_records(path) if path.suffix == ".txt" else [(0, path.read_bytes())]
            for flags, pdu in records:
                if flags & 4:
                    continue
                for operation, selector in ((0, 1), (0, 2), (1, 0)):
                    value = b"firewall"
                    write(out_dir, bytes([POLICY, LEVEL, operation, selector, len(value)]) +
                          value + pdu)


def invite(headers: list, sdp: list, end: str = "\r\n") -> bytes:
    body = end.join(sdp) + end
    lines = ["INVITE sip:bob@192.0.2.10 SIP/2.0",
             "Via: SIP/2.0/UDP 10.0.0.5:5060;branch=z9hG4bK-long",
             "From: <sip:alice@10.0.0.5>;tag=a1", "To: <sip:bob@192.0.2.10>",
             "Call-ID: long@10.0.0.5", "CSeq: 1 INVITE"] + headers + [
             "Content-Type: application/sdp", "Content-Length: %d" % len(body), ""]
    return (end.join(lines) + end + body).encode()


def filled(size: int, line) -> list:
    lines, used, i = [], 0, 0
    while used + len(line(i)) + 2 <= size:
        lines.append(line(i))
        used += len(line(i)) + 2
        i += 1
    return lines


def long_sip_seeds(out_dir: pathlib.Path) -> None:
    size = 63 * 1024  # room for the record header and the fixed lines within 64 KB
    sdp = ["v=0", "o=- 1 1 IN IP4 10.0.0.5", "s=-", "c=IN IP4 10.0.0.5", "t=0 0",
           "m=audio 4000 RTP/AVP 0", "a=rtpmap:0 PCMU/8000"]
    shapes = {
        "bare-m-lines": invite([], sdp + filled(size, lambda i: "m=")),
        "bare-cr-ends": invite(filled(size // 2, lambda i: "X-Filler: %d" % i),
                               sdp + filled(size // 2, lambda i: "a=x:%d" % i), "\r"),
        "nul-ends": invite(filled(size // 2, lambda i: "X-Filler: %d" % i),
                           sdp + filled(size // 2, lambda i: "a=x:%d" % i), "\0"),
        "rtpmaps": invite([], sdp + filled(size, lambda i: "a=rtpmap:%d PCMU/8000" % (96 + i))),
        "long-c-line": invite([], sdp[:3] + ["c=IN IP4 10.0.0.5 " + "x" * (size // 2), "t=0 0"] +
                              filled(size // 2, lambda i: "m=audio %d RTP/AVP 0" % (4000 + 2 * i))),
        "vias": invite(filled(size, lambda i: "Via: SIP/2.0/UDP 10.0.1.%d;branch=z9hG4bK%d"
                              % (i % 250, i)), sdp),
    }
    for name, message in shapes.items():
        (out_dir / ("long-" + name)).write_bytes(bytes([POLICY, LEVEL]) + record(2, message))


def main() -> int:
    kind, out_dir, inputs = sys.argv[1], pathlib.Path(sys.argv[2]), sys.argv[3:]
    out_dir.mkdir(parents=True, exist_ok=True)
    if kind == "sip-long":
        long_sip_seeds(out_dir)
        return 0
    if kind != "sip":
        asn1_seeds(kind, out_dir, inputs)
        return 0
    policy, level = POLICY, LEVEL
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
