#!/usr/bin/env python3
"""Test peers for voipfilter-proxy on real sockets (run inside the test namespaces).

h323-caller / h323-callee: the two ends of H.323 calls replayed from captured transcripts (lines
"<frame> <O|D> <h225|h245> <hex>", O for the side that called). Each end sends its own lines
and reads the other end's, in transcript order, so the proxy sees the calls as the capture had
them. The captured endpoint addresses are replaced, byte for byte, by the test network's ones;
the caller finds the separate H.245 address the proxy announced in the messages it receives.

ras-endpoint / ras-gatekeeper: a registration through the proxy (captured RAS messages), a call
to the address the proxy maps for it, and the mapping's withdrawal.

msrp-caller / msrp-callee: a SIP call with a message session whose MSRP connection goes through
the proxy's TCP relay.

flood: malformed SIP datagrams (RFC 4475 torture messages, PROTOS c07-sip test cases when the
archive is at hand, random bytes) and hostile H.323
connections (damaged TPKT framing, SETUPs with flipped bits), for a bounded time; sink: the host
that takes what the proxy lets through of it.
"""
import argparse
import os
import random
import socket
import struct
import sys
import tarfile
import time


def tpkt(payload):
    return struct.pack('>BBH', 3, 0, len(payload) + 4) + payload


def read_frame(sock):
    header = read_exact(sock, 4)
    length = struct.unpack('>H', header[2:4])[0]
    if header[0] != 3 or length <= 4:
        raise IOError('not a TPKT frame: %s' % header.hex())
    return read_exact(sock, length - 4)


def read_exact(sock, count):
    data = b''
    while len(data) < count:
        chunk = sock.recv(count - len(data))
        if not chunk:
            raise IOError('connection closed after %d of %d bytes' % (len(data), count))
        data += chunk
    return data


def tcp_listener(ip, port, backlog=1):
    listener = socket.socket()
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    listener.bind((ip, port))
    listener.listen(backlog)
    listener.settimeout(10)
    return listener


def accept(listener):
    conn = listener.accept()[0]
    conn.settimeout(5)
    return conn


def udp_socket(ip, port, timeout=None):
    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sock.bind((ip, port))
    sock.settimeout(timeout)
    return sock


def read_bytes(path):
    with open(path, 'rb') as f:
        return f.read()


def load_call(spec):
    """A call: FILE[,CAPTURED_CALLER_IP,CAPTURED_CALLEE_IP]; .txt transcripts, or a lone SETUP
    (.tpkt.bin with its TPKT header, .q931.bin without)."""
    parts = spec.split(',')
    path = parts[0]
    if path.endswith('.txt'):
        lines = []
        for line in open(path):
            frame, side, channel, hexdata = line.split()
            lines.append((side, channel, bytes.fromhex(hexdata)))
    else:
        data = read_bytes(path)
        if path.endswith('.tpkt.bin'):
            data = data[4:]
        lines = [('O', 'h225', data)]
    ips = [socket.inet_aton(ip) for ip in parts[1:3]]
    return lines, ips


def substitute(data, captured, actual):
    for old, new in zip(captured, actual):
        data = data.replace(old, new)
    return data


def announced_port(frames, proxy_ip):
    """The relay port after the proxy's own address, as the CONNECT now announces it."""
    for frame in frames:
        at = frame.find(proxy_ip)
        if at >= 0 and at + 6 <= len(frame):
            return struct.unpack('>H', frame[at + 4:at + 6])[0]
    raise IOError('no H.245 address of the proxy in the messages received')


def h323_end(args):
    """Plays one end of each call: the caller connects to the proxy and finds the H.245 address
    it announces; the callee listens on 1720 and on the H.245 port its captured CONNECT names."""
    caller = args.role == 'h323-caller'
    me, peer = socket.inet_aton(args.me), socket.inet_aton(args.peer)
    actual = [me, peer] if caller else [peer, me]
    listener = None if caller else tcp_listener(args.me, 1720, 8)
    for spec in args.calls:
        lines, captured = load_call(spec)
        h245_listener = None
        if not caller and any(channel == 'h245' for _, channel, _ in lines):
            h245_listener = tcp_listener(args.me, args.h245_port)
        call = socket.create_connection((args.proxy, 1720), timeout=5) if caller else accept(
            listener)
        h245 = None
        received = []
        for side, channel, data in lines:
            if channel == 'h245' and h245 is None:
                h245 = (socket.create_connection(
                    (args.proxy, announced_port(received, socket.inet_aton(args.proxy))),
                    timeout=5) if caller else accept(h245_listener))
            sock = call if channel == 'h225' else h245
            if (side == 'O') == caller:
                sock.sendall(tpkt(substitute(data, captured, actual)))
            else:
                received.append(read_frame(sock))
        for sock in (h245, call, h245_listener):
            if sock is not None:
                sock.close()
        print('%s: %s played, %d messages received' % (
            'caller' if caller else 'callee', os.path.basename(spec.split(',')[0]), len(received)))


# The RAS exchange, from captures in tests/data/ras: a Tandberg endpoint's RegistrationRequest
# and the gatekeeper's RegistrationConfirm, then an SJphone gatekeeper's RegistrationReject.
RAS_ENDPOINT, RAS_GATEKEEPER = socket.inet_aton('10.47.208.204'), socket.inet_aton('10.47.208.50')


def ras_endpoint(args):
    """Registers through the proxy, takes the call the gatekeeper's side places to the registered
    address, and registers again to be rejected."""
    captured = [RAS_ENDPOINT, RAS_GATEKEEPER]
    actual = [socket.inet_aton(args.me), socket.inet_aton(args.proxy)]
    rrq = substitute(read_bytes(os.path.join(args.data, 'ndpi-h323-071-3.bin')), captured, actual)
    listener = tcp_listener(args.me, 1720)
    ras = udp_socket(args.me, 1719, 5)
    ras.sendto(rrq, (args.proxy, 1719))
    confirm, _ = ras.recvfrom(65536)
    call = accept(listener)
    setup = read_frame(call)
    call.close()
    ras.sendto(rrq, (args.proxy, 1719))
    reject, _ = ras.recvfrom(65536)
    print('endpoint: registered (%d-byte answer), took a call (%d-byte SETUP), rejected '
          '(%d-byte answer)' % (len(confirm), len(setup), len(reject)))


def ras_gatekeeper(args):
    """Answers the registrations it receives through the proxy, and calls the address the proxy
    announced for the endpoint: while registered the call reaches the endpoint, after the
    rejection nobody listens there."""
    proxy_ip = socket.inet_aton(args.proxy)
    inside = socket.inet_aton(args.peer)
    confirm = substitute(read_bytes(os.path.join(args.data, 'ndpi-h323-072-4.bin')),
                         [RAS_GATEKEEPER, RAS_ENDPOINT], [socket.inet_aton(args.me), proxy_ip])
    reject = read_bytes(os.path.join(args.data, 'wireshark-SIP_CALL_RTP_G711-ras-002-5.bin'))
    ras = udp_socket(args.me, 1719, 10)
    rrq, source = ras.recvfrom(65536)
    if inside in rrq:
        raise IOError('the registration carries the inside address')
    at = rrq.find(proxy_ip)
    if at < 0:
        raise IOError('the registration does not carry the proxy\'s address')
    # The call signalling address comes first in a RegistrationRequest.
    mapped = struct.unpack('>H', rrq[at + 4:at + 6])[0]
    ras.sendto(confirm, source)
    call = socket.create_connection((args.proxy, mapped), timeout=5)
    call.sendall(tpkt(read_bytes(args.setup)))
    time.sleep(1)
    call.close()
    rrq, source = ras.recvfrom(65536)
    ras.sendto(reject, source)
    time.sleep(0.5)
    try:
        socket.create_connection((args.proxy, mapped), timeout=2).close()
        raise IOError('the mapping to port %d is still open after the rejection' % mapped)
    except ConnectionRefusedError:
        pass
    print('gatekeeper: registration mapped to %s:%d, called through it, mapping withdrawn'
          % (args.proxy, mapped))


def sip_message(start, call_id, cseq, tag_from, tag_to, via, sdp=None):
    headers = [start, 'Via: SIP/2.0/UDP %s;branch=z9hG4bK%s' % (via, call_id + cseq.split()[0]),
               'From: <sip:alice@inside>;tag=%s' % tag_from,
               'To: <sip:bob@outside>' + (';tag=%s' % tag_to if tag_to else ''),
               'Call-ID: ' + call_id, 'CSeq: ' + cseq, 'Max-Forwards: 70']
    body = ''
    if sdp is not None:
        body = sdp
        headers.append('Content-Type: application/sdp')
    headers.append('Content-Length: %d' % len(body))
    return ('\r\n'.join(headers) + '\r\n\r\n' + body).encode()


def message_sdp(ip, port):
    return ('v=0\r\no=- 1 1 IN IP4 %s\r\ns=-\r\nc=IN IP4 %s\r\nt=0 0\r\n'
            'm=message %d TCP/MSRP *\r\na=accept-types:text/plain\r\n' % (ip, ip, port))


def sdp_media(message):
    """The address and port of the first m= line of a SIP message's SDP body."""
    text = message.decode(errors='replace')
    address = port = None
    for line in text.split('\r\n'):
        if line.startswith('c=IN IP4 '):
            address = line[9:].strip()
        elif line.startswith('m=') and port is None:
            port = int(line.split()[1])
    return address, port


def msrp_caller(args):
    """Calls with a message session (m=message, MSRP over TCP) through the proxy, sends a chunk
    over the TCP connection to the address the answer names, reads it echoed, and hangs up."""
    sip = udp_socket(args.me, 5060, 5)
    proxy = (args.proxy, 5060)
    call_id, via = 'msrp-1@' + args.me, args.me + ':5060'
    sip.sendto(sip_message('INVITE sip:bob@%s SIP/2.0' % args.proxy, call_id, '1 INVITE', 'a1',
                           None, via, message_sdp(args.me, 7394)), proxy)
    answer, _ = sip.recvfrom(65536)
    if not answer.startswith(b'SIP/2.0 200'):
        raise IOError('the INVITE was answered with %r' % answer[:40])
    to_tag = answer.split(b';tag=')[2].split(b'\r\n')[0].decode()
    address, port = sdp_media(answer)
    sip.sendto(sip_message('ACK sip:bob@%s SIP/2.0' % args.proxy, call_id, '1 ACK', 'a1', to_tag,
                           via), proxy)
    chunk = b'MSRP t1 SEND\r\nTo-Path: msrp://x/s;tcp\r\n\r\nhello through the relay\r\n-------t1$\r\n'
    stream = socket.create_connection((address, port), timeout=5)
    stream.sendall(chunk)
    echoed = read_exact(stream, len(chunk))
    stream.close()
    if echoed != chunk:
        raise IOError('the message session echoed something else')
    sip.sendto(sip_message('BYE sip:bob@%s SIP/2.0' % args.proxy, call_id, '2 BYE', 'a1', to_tag,
                           via), proxy)
    bye_answer, _ = sip.recvfrom(65536)
    if not bye_answer.startswith(b'SIP/2.0 200'):
        raise IOError('the BYE was answered with %r' % bye_answer[:40])
    print('msrp caller: the answer named %s:%d, the session went through it' % (address, port))


def msrp_callee(args):
    """Answers one message-session INVITE, echoes what arrives over MSRP, answers the BYE."""
    sip = udp_socket(args.me, 5060, 10)
    listener = tcp_listener(args.me, 7395)
    invite, source = sip.recvfrom(65536)
    address, port = sdp_media(invite)
    if address != args.proxy:
        raise IOError('the offer names %s, not the proxy' % address)
    header = {}
    for line in invite.decode().split('\r\n'):
        header.setdefault(line.split(':')[0], line)
    body = message_sdp(args.me, 7395)
    sip.sendto(('SIP/2.0 200 OK\r\n%s\r\n%s\r\n%s;tag=b1\r\n%s\r\nCSeq: 1 INVITE\r\n'
                'Content-Type: application/sdp\r\nContent-Length: %d\r\n\r\n%s'
                % (header['Via'], header['From'], header['To'], header['Call-ID'], len(body),
                   body)).encode(), source)
    stream = accept(listener)
    data = stream.recv(65536)
    stream.sendall(data)
    time.sleep(0.5)
    stream.close()
    while True:
        message, source = sip.recvfrom(65536)
        if message.startswith(b'BYE'):
            break
    lines = message.decode().split('\r\n')
    keep = [l for l in lines if l.split(':')[0] in ('Via', 'From', 'To', 'Call-ID', 'CSeq')]
    sip.sendto(('SIP/2.0 200 OK\r\n' + '\r\n'.join(keep) +
                '\r\nContent-Length: 0\r\n\r\n').encode(), source)
    print('msrp callee: offer named the proxy at %s:%d, %d bytes echoed' % (address, port,
                                                                           len(data)))


def protos_cases(archive, count):
    cases = []
    with tarfile.open(archive) as tar:
        for member in tar:
            if not member.isfile():
                continue
            data = tar.extractfile(member).read()
            space = data.find(b' ')
            length = int(data[:space])
            cases.append(data[space + 1:space + 1 + length])
            if len(cases) >= count:
                break
    return cases


def flood(args):
    rng = random.Random(1)
    cases = protos_cases(args.protos, args.protos_cases) if args.protos else []
    for name in sorted(os.listdir(args.torture)):
        cases.append(read_bytes(os.path.join(args.torture, name)))
    setups = [load_call(spec)[0][0][2] for spec in args.setups]
    sip = udp_socket(args.me, 0)
    me = args.me.encode()
    end = time.time() + args.seconds
    sent_sip = sent_h323 = 0
    n = 0
    while time.time() < end:
        n += 1
        if n % 4 == 0:
            message = bytes(rng.getrandbits(8) for _ in range(rng.randint(1, 400)))
        else:
            case = cases[n % len(cases)]
            message = case
            for field, value in ((b'<Call-ID>', b'flood%d' % n), (b'<From-Address>', me),
                                 (b'<From-IP>', me), (b'<To>', b'flood@' + args.proxy.encode()),
                                 (b'<From>', b'flood@' + me), (b'<Local-Port>', b'5060'),
                                 (b'<CSeq>', b'1'), (b'<Branch-ID>', b'%d' % n),
                                 (b'<Teardown-Method>', b'BYE')):
                message = message.replace(field, value)
            message = message.replace(b'<Content-Length>', b'%d' % (len(message) // 8))[:65000]
        try:
            sip.sendto(message, (args.proxy, 5060))
            sent_sip += 1
        except OSError:
            pass
        if n % 20 == 0:
            # A hostile H.323 connection: a SETUP with bits flipped anywhere (in the Q.931 part or
            # in the PER-encoded user information, where some reach the library's assertions:
            # the hardened flavour refuses those messages) or cut short, framing that lies, or
            # junk.
            try:
                conn = socket.create_connection((args.proxy, 1720), timeout=2)
                setup = bytearray(setups[n % len(setups)])
                kind = (n // 20) % 4
                if kind == 0:
                    for _ in range(rng.randint(1, 8)):
                        at = rng.randrange(len(setup))
                        setup[at] ^= 1 << rng.randrange(8)
                    conn.sendall(tpkt(bytes(setup)))
                elif kind == 1:
                    conn.sendall(tpkt(bytes(setup[:rng.randrange(1, len(setup))])))
                elif kind == 2:
                    conn.sendall(struct.pack('>BBH', 3, 0, 60000) + bytes(setup))
                else:
                    conn.sendall(bytes(rng.getrandbits(8) for _ in range(200)))
                conn.close()
                sent_h323 += 1
            except OSError:
                pass
        if args.rate:
            time.sleep(1.0 / args.rate)
    print('flood: %d malformed SIP datagrams, %d hostile H.323 connections in %d s'
          % (sent_sip, sent_h323, args.seconds))


def sink(args):
    """Takes whatever the proxy passes on of a flood: UDP datagrams on 5060 and TCP connections
    on 1720, read and discarded, for a bounded time."""
    import selectors
    udp = udp_socket(args.me, 5060)
    listener = tcp_listener(args.me, 1720, 128)
    selector = selectors.DefaultSelector()
    selector.register(udp, selectors.EVENT_READ)
    selector.register(listener, selectors.EVENT_READ)
    end = time.time() + args.seconds
    while time.time() < end:
        for key, _ in selector.select(timeout=0.5):
            sock = key.fileobj
            if sock is udp:
                udp.recvfrom(65536)
            elif sock is listener:
                conn, _ = listener.accept()
                conn.setblocking(False)
                selector.register(conn, selectors.EVENT_READ)
            else:
                try:
                    data = sock.recv(65536)
                except OSError:
                    data = b''
                if not data:
                    selector.unregister(sock)
                    sock.close()


def main():
    parser = argparse.ArgumentParser()
    sub = parser.add_subparsers(dest='role', required=True)
    for role in ('h323-caller', 'h323-callee'):
        p = sub.add_parser(role)
        p.add_argument('--me', required=True)
        p.add_argument('--peer', required=True, help='the other endpoint')
        p.add_argument('--proxy')
        p.add_argument('--h245-port', type=int, default=1232)
        p.add_argument('calls', nargs='+')
    p = sub.add_parser('flood')
    p.add_argument('--me', required=True)
    p.add_argument('--proxy', required=True)
    p.add_argument('--protos', help='the PROTOS c07-sip archive (optional)')
    p.add_argument('--torture', required=True, help='a folder of SIP torture messages')
    p.add_argument('--protos-cases', type=int, default=600)
    p.add_argument('--seconds', type=int, default=10)
    p.add_argument('--rate', type=float, default=1000)
    p.add_argument('setups', nargs='+')
    for role in ('ras-endpoint', 'ras-gatekeeper'):
        p = sub.add_parser(role)
        p.add_argument('--me', required=True)
        p.add_argument('--peer')
        p.add_argument('--proxy', required=True)
        p.add_argument('--data', required=True, help='tests/data/ras')
        p.add_argument('--setup', help='a SETUP (Q.931 without TPKT) to call with')
    for role in ('msrp-caller', 'msrp-callee'):
        p = sub.add_parser(role)
        p.add_argument('--me', required=True)
        p.add_argument('--proxy', required=True)
    p = sub.add_parser('sink')
    p.add_argument('--me', required=True)
    p.add_argument('--seconds', type=int, default=60)
    args = parser.parse_args()
    {'h323-caller': h323_end, 'h323-callee': h323_end, 'flood': flood,
     'ras-endpoint': ras_endpoint, 'ras-gatekeeper': ras_gatekeeper,
     'msrp-caller': msrp_caller, 'msrp-callee': msrp_callee,
     'sink': sink}[args.role](args)


if __name__ == '__main__':
    try:
        main()
    except (IOError, OSError) as error:
        print('%s: %s' % (sys.argv[1], error), file=sys.stderr)
        sys.exit(1)
