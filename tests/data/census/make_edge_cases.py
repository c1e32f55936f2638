#!/usr/bin/env python3
"""Writes edge_cases.mrt: hand-made MRT records for the corners of the bgpdump -m format.

edge_cases.mrt.bgpdump-m.txt beside it is what `bgpdump -m` 1.6.2 printed for that file; rerun
`bgpdump -m edge_cases.mrt > edge_cases.mrt.bgpdump-m.txt` after changing the records.
"""
import struct
import sys


def mrt(ts, typ, sub, body, usec=None):
    if usec is not None:
        body = struct.pack('>I', usec) + body
    return struct.pack('>IHHI', ts, typ, sub, len(body)) + body


def attr(flags, typ, value):
    if len(value) > 255:
        flags |= 0x10
        return struct.pack('>BBH', flags, typ, len(value)) + value
    return struct.pack('>BBB', flags, typ, len(value)) + value


def seg(typ, asns, size):
    fmt = '>H' if size == 2 else '>I'
    return struct.pack('>BB', typ, len(asns)) + b''.join(struct.pack(fmt, a) for a in asns)


def ip4(s):
    return bytes(int(x) for x in s.split('.'))


def ip6(s):
    import ipaddress
    return ipaddress.IPv6Address(s).packed


def pfx(p, path_id=None):
    addr, plen = p.split('/')
    plen = int(plen)
    raw = ip6(addr) if ':' in addr else ip4(addr)
    out = bytes([plen]) + raw[:(plen + 7) // 8]
    if path_id is not None:
        out = struct.pack('>I', path_id) + out
    return out


def update(withdrawn=b'', attrs=b'', nlri=b''):
    body = struct.pack('>H', len(withdrawn)) + withdrawn + struct.pack('>H', len(attrs)) + attrs + nlri
    return b'\xff' * 16 + struct.pack('>HB', 19 + len(body), 2) + body


def bgp4mp(asn_size, peer_as, local_as, peer, local, msg, v6=False):
    fmt = '>H' if asn_size == 2 else '>I'
    afi = 2 if v6 else 1
    a = ip6 if v6 else ip4
    return struct.pack(fmt, peer_as) + struct.pack(fmt, local_as) + struct.pack('>HH', 0, afi) + a(peer) + a(local) + msg


ORIGIN = lambda v: attr(0x40, 1, bytes([v]))
NEXT_HOP = lambda s: attr(0x40, 3, ip4(s))
MED = lambda v: attr(0x80, 4, struct.pack('>I', v))
LOCAL_PREF = lambda v: attr(0x40, 5, struct.pack('>I', v))
ATOMIC = attr(0x40, 6, b'')
COMMUNITIES = lambda *cs: attr(0xc0, 8, b''.join(struct.pack('>I', c) for c in cs))

recs = []
T = 1500000000
# 1. 2-byte session: every segment type, atomic aggregate, aggregator, well-known communities.
a = (ORIGIN(1) + attr(0x40, 2, seg(2, [1, 2], 2) + seg(1, [3, 4], 2) + seg(3, [5, 6], 2) + seg(4, [7, 8], 2) + seg(2, [9], 2))
     + NEXT_HOP('192.0.2.1') + MED(7) + LOCAL_PREF(200) + ATOMIC
     + attr(0xc0, 7, struct.pack('>H', 64500) + ip4('198.51.100.1'))
     + COMMUNITIES(0xFFFFFF01, 0xFFFFFF02, 0xFFFFFF03, 0x00010002, 0xFFFF0000))
recs.append(mrt(T, 16, 1, bgp4mp(2, 64496, 64511, '10.0.0.1', '10.0.0.2', update(pfx('10.1.0.0/16') + pfx('0.0.0.0/0'), a, pfx('203.0.113.0/24') + pfx('198.51.100.128/25')))))
# 2. AS4_PATH folded into a 2-byte AS_PATH of two segments, AS4_AGGREGATOR behind AS_TRANS.
a = (ORIGIN(2) + attr(0x40, 2, seg(2, [64496, 23456], 2) + seg(2, [23456, 23456], 2)) + NEXT_HOP('192.0.2.2')
     + attr(0xc0, 7, struct.pack('>H', 23456) + ip4('198.51.100.2'))
     + attr(0xc0, 17, seg(2, [4200000001, 4200000002, 4200000003], 4))
     + attr(0xc0, 18, struct.pack('>I', 4200000009) + ip4('198.51.100.9')))
recs.append(mrt(T + 1, 16, 1, bgp4mp(2, 64496, 64511, '10.0.0.1', '10.0.0.2', update(b'', a, pfx('203.0.113.0/24')))))
# 2b. The same with a first AS_PATH segment shorter than the part AS4_PATH leaves: the tool repeats
# that first segment.
a = (ORIGIN(0) + attr(0x40, 2, seg(1, [64496, 64498], 2) + seg(2, [64497, 23456, 23456], 2)) + NEXT_HOP('192.0.2.2')
     + attr(0xc0, 17, seg(2, [4200000001, 4200000002], 4)))
recs.append(mrt(T + 1, 16, 1, bgp4mp(2, 64496, 64511, '10.0.0.1', '10.0.0.2', update(b'', a, pfx('203.0.113.0/24')))))
# 3. AGGREGATOR without AS_TRANS beside AS4_AGGREGATOR: both AS4 attributes are ignored.
a = (ORIGIN(0) + attr(0x40, 2, seg(2, [64496, 23456], 2)) + NEXT_HOP('192.0.2.3')
     + attr(0xc0, 7, struct.pack('>H', 64497) + ip4('198.51.100.3'))
     + attr(0xc0, 17, seg(2, [4200000001], 4))
     + attr(0xc0, 18, struct.pack('>I', 4200000009) + ip4('198.51.100.9')))
recs.append(mrt(T + 2, 16, 1, bgp4mp(2, 64496, 64511, '10.0.0.1', '10.0.0.2', update(b'', a, pfx('203.0.113.0/24')))))
# 4. BGP4MP_ET, AS4 session: MP_REACH IPv4 unicast with high LOCAL_PREF and MED.
mp = struct.pack('>HBB', 1, 1, 4) + ip4('192.0.2.4') + b'\x00' + pfx('203.0.113.0/24')
a = ORIGIN(0) + attr(0x40, 2, seg(2, [4200000001, 64496], 4)) + attr(0x80, 14, mp) + MED(0x80000001) + LOCAL_PREF(0xfffffffe)
recs.append(mrt(T + 3, 17, 4, bgp4mp(4, 4200000001, 64511, '10.0.0.1', '10.0.0.2', update(b'', a)), usec=123))
# 5. IPv6 session, MP_REACH with link-local next hop, MP_UNREACH, empty AS_PATH.
mp = struct.pack('>HBB', 2, 1, 32) + ip6('2001:db8::1') + ip6('fe80::1') + b'\x00' + pfx('2001:db8:1::/48') + pfx('2001:db8:2::/47')
mpu = struct.pack('>HB', 2, 1) + pfx('2001:db8:3::/48')
a = ORIGIN(0) + attr(0x40, 2, b'') + attr(0x80, 15, mpu) + attr(0x80, 14, mp) + LOCAL_PREF(100)
recs.append(mrt(T + 4, 16, 4, bgp4mp(4, 64496, 64511, '2001:db8::a', '2001:db8::b', update(b'', a), v6=True)))
# 6. IPv6 prefixes over an IPv4 session.
mp = struct.pack('>HBB', 2, 1, 16) + ip6('::ffff:192.0.2.6') + b'\x00' + pfx('2001:db8:6::/48')
a = ORIGIN(0) + attr(0x40, 2, seg(2, [64496], 4)) + attr(0x80, 14, mp)
recs.append(mrt(T + 5, 16, 4, bgp4mp(4, 64496, 64511, '10.0.0.1', '10.0.0.2', update(b'', a))))
# 7. Add-path message, received and sent, withdrawals and announcements with path ids.
a = ORIGIN(0) + attr(0x40, 2, seg(2, [64496], 4)) + NEXT_HOP('192.0.2.7')
recs.append(mrt(T + 6, 16, 9, bgp4mp(4, 64496, 64511, '10.0.0.1', '10.0.0.2', update(pfx('10.7.0.0/16', 5), a, pfx('203.0.113.0/24', 7) + pfx('203.0.113.0/24', 8)))))
recs.append(mrt(T + 7, 16, 7, bgp4mp(4, 64496, 64511, '10.0.0.1', '10.0.0.2', update(pfx('10.8.0.0/16'), a, pfx('203.0.113.0/24')))))
# 8. State changes, IPv4 and IPv6 session.
recs.append(mrt(T + 8, 16, 5, struct.pack('>IIHH', 4200000001, 64511, 0, 1) + ip4('10.0.0.1') + ip4('10.0.0.2') + struct.pack('>HH', 6, 1)))
recs.append(mrt(T + 9, 17, 0, struct.pack('>HHHH', 64496, 64511, 0, 2) + ip6('2001:db8::a') + ip6('2001:db8::b') + struct.pack('>HH', 3, 6), usec=999999))
# 9. An AS path long enough to be cut.
long_path = b''.join(seg(2, [60000 + i for i in range(255)], 2) for _ in range(6))
a = ORIGIN(0) + attr(0x40, 2, long_path) + NEXT_HOP('192.0.2.9')
recs.append(mrt(T + 10, 16, 1, bgp4mp(2, 64496, 64511, '10.0.0.1', '10.0.0.2', update(b'', a, pfx('203.0.113.0/24')))))
# 10. TABLE_DUMP_V2: peer index with mixed peers, an IPv4 entry with AS4 aggregator-free attributes.
peers = (struct.pack('>B', 0) + ip4('10.0.0.9') + ip4('10.0.0.1') + struct.pack('>H', 64496)
         + struct.pack('>B', 3) + ip4('10.0.0.10') + ip6('2001:db8::a') + struct.pack('>I', 4200000001))
recs.append(mrt(T + 11, 13, 1, ip4('10.0.0.254') + struct.pack('>H', 4) + b'edge' + struct.pack('>H', 2) + peers))
a1 = ORIGIN(0) + attr(0x40, 2, seg(2, [64496, 4200000001], 4)) + NEXT_HOP('10.0.0.1') + COMMUNITIES(0x00640064)
abbrev = attr(0x80, 14, bytes([32]) + ip6('2001:db8::a') + ip6('fe80::a'))
a2 = ORIGIN(1) + attr(0x40, 2, seg(2, [4200000001], 4)) + abbrev + attr(0xc0, 7, struct.pack('>I', 4200000001) + ip4('10.0.0.10'))
entries = struct.pack('>HIH', 0, T, len(a1)) + a1 + struct.pack('>HIH', 1, T, len(a2)) + a2
recs.append(mrt(T + 12, 13, 2, struct.pack('>IB', 1, 22) + ip4('198.51.100.0')[:3] + struct.pack('>H', 2) + entries))
entries = struct.pack('>HIH', 1, T, len(a2)) + a2
recs.append(mrt(T + 13, 13, 4, struct.pack('>IB', 2, 32) + ip6('2001:db8:9::')[:4] + struct.pack('>H', 1) + entries))
# 10b. Add-path RIB entries (RFC 8050) with large path identifiers, IPv4 and IPv6.
entries = struct.pack('>HII', 0, T, 4000000001) + struct.pack('>H', len(a1)) + a1 + struct.pack('>HII', 1, T, 70000) + struct.pack('>H', len(a2)) + a2
recs.append(mrt(T + 13, 13, 8, struct.pack('>IB', 3, 24) + ip4('192.0.2.0')[:3] + struct.pack('>H', 2) + entries))
entries = struct.pack('>HII', 1, T, 4294967295) + struct.pack('>H', len(a2)) + a2
recs.append(mrt(T + 13, 13, 10, struct.pack('>IB', 4, 48) + ip6('2001:db8:a::')[:6] + struct.pack('>H', 1) + entries))
# 10c. Add-path MP_REACH/MP_UNREACH for IPv6 over an IPv6 session.
mp = struct.pack('>HBB', 2, 1, 16) + ip6('2001:db8::1') + b'\x00' + pfx('2001:db8:1::/48', 3000000000) + pfx('2001:db8:1::/48', 1)
mpu = struct.pack('>HB', 2, 1) + pfx('2001:db8:3::/48', 77)
a = ORIGIN(0) + attr(0x40, 2, seg(2, [64496], 4)) + attr(0x80, 15, mpu) + attr(0x80, 14, mp)
recs.append(mrt(T + 13, 16, 9, bgp4mp(4, 64496, 64511, '2001:db8::a', '2001:db8::b', update(b'', a), v6=True)))
# 11. TABLE_DUMP (v1) IPv6 entry with a 2-byte path and an abbreviated next hop.
a = ORIGIN(0) + attr(0x40, 2, seg(2, [64496, 64497], 2)) + attr(0x80, 14, bytes([16]) + ip6('2001:db8::c'))
recs.append(mrt(T + 14, 12, 2, struct.pack('>HH', 0, 1) + ip6('2001:db8:c::') + struct.pack('>BBI', 48, 1, T) + ip6('2001:db8::c') + struct.pack('>HH', 64496, len(a)) + a))

# 12. A 2-byte session whose UPDATE carries an empty AS_PATH and an empty AS4_PATH.
a = ORIGIN(0) + attr(0x40, 2, b'') + NEXT_HOP('192.0.2.12') + attr(0xc0, 17, b'')
recs.append(mrt(T + 15, 16, 1, bgp4mp(2, 64496, 64511, '10.0.0.1', '10.0.0.2', update(b'', a, pfx('203.0.113.0/24')))))
# 12b. Empty AS_PATH with a non-empty AS4_PATH (longer than the AS_PATH), and an AS_SET first.
a = ORIGIN(0) + attr(0x40, 2, b'') + NEXT_HOP('192.0.2.12') + attr(0xc0, 17, seg(2, [4200000001], 4))
recs.append(mrt(T + 15, 16, 1, bgp4mp(2, 64496, 64511, '10.0.0.1', '10.0.0.2', update(b'', a, pfx('203.0.113.0/24')))))
a = (ORIGIN(0) + attr(0x40, 2, seg(1, [64496, 23456], 2) + seg(2, [23456, 23456], 2)) + NEXT_HOP('192.0.2.12')
     + attr(0xc0, 17, seg(3, [4200000003], 4) + seg(2, [4200000001], 4)))
recs.append(mrt(T + 15, 16, 1, bgp4mp(2, 64496, 64511, '10.0.0.1', '10.0.0.2', update(b'', a, pfx('203.0.113.0/24')))))
# 13. IPv6 text: peers, next hops and prefixes with one group of zeros, several equal runs, and
# IPv4-mapped and -compatible addresses; 4-byte AS numbers where a dotted form could show;
# large communities, a 4-byte AGGREGATOR, path ids and _ET microseconds at their extremes.
for peer in ('2001:7f8:30:0:2:1:0:8447', '1:0:0:2:0:0:3:4', '::ffff:192.0.2.13', '::2', '::1', '::', '::ffff:0:0'):
    recs.append(mrt(T + 16, 16, 0, struct.pack('>HHHH', 65535, 64511, 0, 2) + ip6(peer) + ip6('2001:db8::b') + struct.pack('>HH', 1, 2)))
mp = (struct.pack('>HBB', 2, 1, 32) + ip6('2001:7f8:30:0:2:1:0:8447') + ip6('fe80::1:0:0:1') + b'\x00'
      + pfx('2001:7f8:0:1:2::/80') + pfx('::ffff:0:0/96') + pfx('::/0') + pfx('1:0:2::/48'))
a = (ORIGIN(0) + attr(0x40, 2, seg(2, [65536, 4294967295, 65535, 131072], 4)) + attr(0x80, 14, mp)
     + attr(0xc0, 7, struct.pack('>I', 4294967295) + ip4('198.51.100.13'))
     + COMMUNITIES(0xFFFF0001, 0x0000FFFF, 0xFFFFFF04)
     + attr(0xc0, 32, struct.pack('>III', 4294967295, 0, 65536) + struct.pack('>III', 1, 2, 3)))
recs.append(mrt(T + 17, 16, 4, bgp4mp(4, 4294967295, 65536, '2001:7f8:30:0:2:1:0:8447', '2001:db8::b', update(b'', a), v6=True)))
mp = struct.pack('>HBB', 2, 1, 16) + ip6('::ffff:192.0.2.13') + b'\x00' + pfx('2001:db8:d::/48', 0)
a = ORIGIN(2) + attr(0x40, 2, seg(2, [64496], 4)) + attr(0x80, 14, mp)
recs.append(mrt(T + 18, 16, 9, bgp4mp(4, 64496, 64511, '::ffff:192.0.2.13', '::2', update(pfx('10.9.0.0/16', 4294967295), a), v6=True)))
for usec in (0, 999999, 1000000, 4294967295):
    recs.append(mrt(T + 19, 17, 5, struct.pack('>IIHH', 4200000001, 64511, 0, 1) + ip4('10.0.0.1') + ip4('10.0.0.2') + struct.pack('>HH', 6, 1), usec=usec))

sys.stdout.buffer.write(b''.join(recs))
