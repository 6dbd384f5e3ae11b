#!/usr/bin/env python3
"""Extracts the H.225.0 user-information elements, RAS messages and H.245 PDUs of the H.323
captures into one file per PDU, and writes pdus.tsv listing them.

Needs tshark (only to read the pcap framing; the PDUs themselves are cut out here, so the
dissector's opinion of their contents plays no part). Run from this folder:

    python3 extract_pdus.py /work/shared/corpus
"""

import os
import subprocess
import sys

CAPTURES = (
    ('ndpi-h323.pcap', 'h323/ndpi-h323.pcap'),
    ('rtp_example', 'h323/wireshark-rtp_example-signalling.pcap'),
    ('sip_call_ras', 'h323/wireshark-SIP_CALL_RTP_G711-ras.pcap'),
)
# Single PDUs: (name, corpus path, kind, framing).
SINGLE_PDUS = (
    ('ekiga-setup', 'h323/hex/dpkt-ekiga-2.0.2-setup-faststart.tpkt.bin', 'uuie', 'tpkt'),
    ('synth-setup_faststart', 'synth/setup_faststart.bin', 'uuie', 'q931'),
    ('synth-h245_olc', 'synth/h245_olc.bin', 'h245', 'per'),
    ('synth-h245_olcack', 'synth/h245_olcack.bin', 'h245', 'per'),
    ('synth-h245_tcs', 'synth/h245_tcs.bin', 'h245', 'per'),
    ('synth-ras_rrq', 'synth/ras_rrq.bin', 'ras', 'per'),
)
Q931_PORT, RAS_PORT = 1720, 1719


def tshark_fields(path, display_filter, fields):
    args = ['tshark', '-r', path, '-Y', display_filter, '-T', 'fields', '-E', 'separator=\t']
    for f in fields:
        args += ['-e', f]
    out = subprocess.run(args, check=True, capture_output=True, text=True).stdout
    return [line.split('\t') for line in out.splitlines() if line]


def user_information(q931):
    """Returns the contents of the user-user IE (H.225.0 7.2.2.1, two length octets) without
    its protocol discriminator, and the Q.931 message type."""
    if len(q931) < 3 or q931[0] != 0x08:
        raise ValueError('not Q.931')
    pos = 2 + (q931[1] & 0x0F)
    message_type = q931[pos]
    pos += 1
    while pos < len(q931):
        ie = q931[pos]
        if ie & 0x80:  # single-octet IE
            pos += 1
            continue
        if ie == 0x7E:
            length = (q931[pos + 1] << 8) | q931[pos + 2]
            body = q931[pos + 3:pos + 3 + length]
            if body[0] != 0x05:
                raise ValueError('user-user IE without the X.208/X.209 discriminator')
            return message_type, body[1:]
        pos += 2 + q931[pos + 1]
    raise ValueError('no user-user IE')


def tpkt_frames(stream):
    """Splits a TCP byte stream into RFC 1006 TPKT payloads."""
    pos = 0
    while pos + 4 <= len(stream):
        if stream[pos] != 3:
            raise ValueError('lost TPKT framing at offset %d' % pos)
        length = (stream[pos + 2] << 8) | stream[pos + 3]
        yield pos, stream[pos + 4:pos + length]
        pos += length


def tcp_streams(path):
    """Per (stream, source port): the payload in sequence order, retransmissions removed, and
    the frame number of each payload start."""
    rows = tshark_fields(path, 'tcp.len > 0 && !tcp.analysis.retransmission',
                         ['frame.number', 'tcp.stream', 'tcp.srcport', 'tcp.dstport', 'tcp.seq',
                          'tcp.payload'])
    streams = {}
    for frame, stream, src, dst, seq, payload in rows:
        key = (int(stream), int(src), int(dst))
        streams.setdefault(key, {})[int(seq)] = (int(frame), bytes.fromhex(payload))
    for key, segments in sorted(streams.items()):
        data = b''
        starts = []
        for seq in sorted(segments):
            frame, payload = segments[seq]
            if seq < len(data) + min(segments):  # overlapping retransmission
                continue
            starts.append((len(data), frame))
            data += payload
        yield key, data, starts


def frame_at(starts, offset):
    return [f for o, f in starts if o <= offset][-1]


def main(corpus):
    rows = []
    for short, rel in CAPTURES:
        path = os.path.join(corpus, rel)
        for (stream, src, dst), data, starts in tcp_streams(path):
            kind = 'uuie' if Q931_PORT in (src, dst) else 'h245'
            for offset, pdu in tpkt_frames(data):
                frame = frame_at(starts, offset)
                if kind == 'uuie':
                    message_type, pdu = user_information(pdu)
                    note = 'Q.931 message type 0x%02x' % message_type
                else:
                    note = 'TCP %d->%d' % (src, dst)
                name = '%s-f%d-%s' % (short, frame, kind)
                while any(r[0] == name + '.bin' for r in rows):
                    name += 'b'  # a second PDU in the same segment
                rows.append((name + '.bin', kind, rel, 'frame %d, %s' % (frame, note), pdu))
        for frame, payload in tshark_fields(path, 'udp.port == %d' % RAS_PORT,
                                            ['frame.number', 'udp.payload']):
            rows.append(('%s-f%s-ras.bin' % (short, frame), 'ras', rel, 'frame %s' % frame,
                         bytes.fromhex(payload)))
    for short, rel, kind, framing in SINGLE_PDUS:
        with open(os.path.join(corpus, rel), 'rb') as f:
            pdu = f.read()
        note = 'whole file'
        if framing == 'tpkt':
            pdu = next(tpkt_frames(pdu))[1]
        if framing in ('tpkt', 'q931'):
            message_type, pdu = user_information(pdu)
            note = 'user-user IE, Q.931 message type 0x%02x' % message_type
        rows.append(('%s-%s.bin' % (short, kind), kind, rel, note, pdu))
    with open('pdus.tsv', 'w') as index:
        index.write('# file\tkind\tsource\tnote\n')
        for name, kind, rel, note, pdu in rows:
            with open(name, 'wb') as f:
                f.write(pdu)
            index.write('%s\t%s\t%s\t%s\n' % (name, kind, rel, note))
    print('%d PDUs' % len(rows))


if __name__ == '__main__':
    main(sys.argv[1] if len(sys.argv) > 1 else '/work/shared/corpus')
