#!/usr/bin/env python3
"""Extracts the H.323 call signalling and separate H.245 PDUs of a capture, one call per output.

Usage: extract.py CAPTURE OUTPUT-PREFIX

TCP segments are put back in order per direction (retransmissions dropped), the TPKT headers
(RFC 1006) are stripped, and every PDU is written as one line:

    <frame> <O|D> <h225|h245> <hex>

O: sent by the originator (the side that connected to the call signalling port 1720).
One file OUTPUT-PREFIX-<n>.txt is written per call, numbered in capture order. An H.245
connection belongs to the call whose originator is one of its endpoints.
"""
import subprocess
import sys

capture, prefix = sys.argv[1], sys.argv[2]
fields = ["frame.number", "tcp.stream", "ip.src", "tcp.srcport", "ip.dst", "tcp.dstport",
          "tcp.seq", "tcp.payload"]
cmd = ["tshark", "-r", capture, "-Y", "tcp.len > 0", "-T", "fields"]
for f in fields:
    cmd += ["-e", f]
rows = subprocess.run(cmd, capture_output=True, text=True, check=True).stdout.splitlines()

streams = {}  # stream -> {"h225": bool, "originator": ip, direction -> [next seq, buffer]}
pdus = []  # (frame, stream, src, bytes)
for row in rows:
    frame, stream, src, sport, dst, dport, seq, payload = row.split("\t")
    s = streams.setdefault(stream, {"ports": (int(sport), int(dport)), "dirs": {}})
    d = s["dirs"].setdefault(src, [int(seq), b""])
    data = bytes.fromhex(payload)
    seq = int(seq)
    if seq + len(data) <= d[0]:
        continue  # retransmission
    if seq < d[0]:
        data = data[d[0] - seq:]
        seq = d[0]
    if seq != d[0]:
        sys.exit(f"gap in stream {stream} at frame {frame}")
    d[0] += len(data)
    d[1] += data
    while len(d[1]) >= 4 and d[1][0] == 3:
        length = (d[1][2] << 8) | d[1][3]
        if length < 4 or len(d[1]) < length:
            break
        pdus.append((int(frame), stream, src, dst, int(sport), int(dport), d[1][4:length]))
        d[1] = d[1][length:]

calls = []  # [originator ip, destination ip, stream set, lines]
for frame, stream, src, dst, sport, dport, pdu in pdus:
    call = None
    for c in calls:
        if stream in c[2] or {src, dst} == {c[0], c[1]}:
            call = c
            break
    if call is None:
        if dport != 1720:
            continue
        call = [src, dst, set(), []]
        calls.append(call)
    call[2].add(stream)
    channel = "h225" if 1720 in (sport, dport) else "h245"
    side = "O" if src == call[0] else "D"
    call[3].append(f"{frame} {side} {channel} {pdu.hex()}")

for n, call in enumerate(calls, 1):
    with open(f"{prefix}-{n}.txt", "w") as out:
        out.write("\n".join(call[3]) + "\n")
    print(f"{prefix}-{n}.txt: {len(call[3])} PDUs, originator {call[0]}")
