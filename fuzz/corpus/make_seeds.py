#!/usr/bin/env python3
"""Writes the seed corpora of the fuzz targets (fuzz/corpus/<target>/) from the MRT dumps in
../shared/data/mrt, plus hand-written texts for the string forms.

  python3 fuzz/corpus/make_seeds.py [MRT_DIR]

MrtRecords: one seed per distinct combination of record kind and attribute type codes, each a
            whole MRT file of a few records (the PEER_INDEX_TABLE first for TABLE_DUMP_V2).
AttributeRoundTrip: the attribute sections of the same records, after one context byte
            (bit 0: 4-byte AS numbers; bit 1: add-path NLRI).
StringForms: one selector byte (the type, as in fuzz/StringForms.h), then the text.
Beside the dumps' records, hand-made ones for every pairing of AS_PATH and AS4_PATH shapes (absent,
empty, AS_SET first, confederation segments, AS_TRANS, AS4_PATH longer than AS_PATH) on 2- and
4-byte sessions, with AGGREGATOR/AS4_AGGREGATOR and IPv6 peers and next hops: the dumps hold
almost none of these, and the fuzzer rarely builds them from scratch.
Seeds bigger than 4 KiB are left out. The committed corpora also hold what fuzzing runs found,
merged down to the inputs that add coverage (fuzz_<target> -merge=1 -max_len=...); running this
script again only adds the seeds.
"""
import gzip
import hashlib
import os
import struct
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
MAX_SEED = 4096
PER_DUMP = 40

DUMPS = [
    "bview.20020722.2337.gz",
    "bview.ipv4_unicast_add_path.gz",
    "bview.ipv6_unicast_add_path.gz",
    "bview.64k_stream_overflow.gz",
    "updates.20070211.0141.gz",
    "updates.20160811.1600.gz",
    "updates.nlri_mask_trailing_bits.gz",
]


def records(data):
    at = 0
    while at + 12 <= len(data):
        ts, typ, sub, length = struct.unpack(">IHHI", data[at:at + 12])
        end = at + 12 + length
        if end > len(data):
            return
        yield typ, sub, data[at:end], data[at + 12:end]
        at = end


def attr_types(section):
    """The type codes of an attribute section, in order (stops at the first overrun)."""
    out, at = [], 0
    while at + 3 <= len(section):
        flags, typ = section[at], section[at + 1]
        if flags & 0x10:
            if at + 4 > len(section):
                break
            length, hdr = struct.unpack(">H", section[at + 2:at + 4])[0], 4
        else:
            length, hdr = section[at + 2], 3
        out.append(typ)
        at += hdr + length
    return tuple(out)


def sections(typ, sub, body):
    """(context byte, attribute section) of each path in a record."""
    try:
        if typ == 12 and sub == 1:  # TABLE_DUMP, IPv4
            (alen,) = struct.unpack(">H", body[20:22])
            return [(0, body[22:22 + alen])]
        if typ == 13 and sub in (2, 4, 8, 10):  # TABLE_DUMP_V2 RIB entries
            addpath = sub >= 8
            at = 4
            plen = body[at]
            at += 1 + (plen + 7) // 8
            (count,) = struct.unpack(">H", body[at:at + 2])
            at += 2
            out = []
            for _ in range(count):
                at += 2 + 4 + (4 if addpath else 0)
                (alen,) = struct.unpack(">H", body[at:at + 2])
                out.append((1 | (2 if addpath else 0), body[at + 2:at + 2 + alen]))
                at += 2 + alen
            return out
        if typ == 16 and sub in (1, 4):  # BGP4MP message, 2- and 4-byte AS
            asz = 4 if sub == 4 else 2
            at = 2 * asz + 2
            (afi,) = struct.unpack(">H", body[at:at + 2])
            at += 2 + (8 if afi == 1 else 32)
            msg = body[at:]
            if len(msg) < 19 or msg[18] != 2:
                return []
            (wlen,) = struct.unpack(">H", msg[19:21])
            p = 21 + wlen
            (alen,) = struct.unpack(">H", msg[p:p + 2])
            return [(1 if asz == 4 else 0, msg[p + 2:p + 2 + alen])]
    except (struct.error, IndexError):
        pass
    return []


def write(directory, payload):
    os.makedirs(directory, exist_ok=True)
    name = hashlib.sha1(payload).hexdigest()
    with open(os.path.join(directory, name), "wb") as f:
        f.write(payload)


def mrt_seeds(mrt_dir):
    for dump in DUMPS:
        path = os.path.join(mrt_dir, dump)
        if not os.path.exists(path):
            print(f"skipping {dump}: not found", file=sys.stderr)
            continue
        data = gzip.open(path).read()
        peer_index = b""
        seen = set()
        for typ, sub, whole, body in records(data):
            if typ == 13 and sub == 1:
                peer_index = whole
                continue
            secs = sections(typ, sub, body)
            key = (typ, sub, tuple(sorted({t for _, s in secs for t in attr_types(s)})))
            if key in seen or len(seen) >= PER_DUMP:
                continue
            prefix = peer_index if typ == 13 else b""
            if len(prefix) + len(whole) > MAX_SEED:
                continue
            seen.add(key)
            write(os.path.join(HERE, "MrtRecords"), prefix + whole)
            for ctx, sec in secs:
                if 0 < len(sec) < MAX_SEED:
                    write(os.path.join(HERE, "AttributeRoundTrip"), bytes([ctx]) + sec)


# ---- hand-made records ---------------------------------------------------------------------

AS_TRANS = 23456


def seg(typ, asns, size):
    fmt = ">H" if size == 2 else ">I"
    return struct.pack(">BB", typ, len(asns)) + b"".join(struct.pack(fmt, a) for a in asns)


def attr(flags, typ, value):
    if len(value) > 255:
        return struct.pack(">BBH", flags | 0x10, typ, len(value)) + value
    return struct.pack(">BBB", flags, typ, len(value)) + value


def bgp4mp_update(asn_size, attrs, nlri, v6_peer=False, et=False):
    body = struct.pack(">H", 0) + struct.pack(">H", len(attrs)) + attrs + nlri
    msg = b"\xff" * 16 + struct.pack(">HB", 19 + len(body), 2) + body
    fmt = ">H" if asn_size == 2 else ">I"
    if v6_peer:
        addrs = bytes.fromhex("20010db8000000000000000000000001") + bytes.fromhex("2001067c000000000000000000000002")
    else:
        addrs = bytes([10, 0, 0, 1, 10, 0, 0, 2])
    rec = struct.pack(fmt, 64496) + struct.pack(fmt, 64511) + struct.pack(">HH", 0, 2 if v6_peer else 1) + addrs + msg
    sub = 1 if asn_size == 2 else 4
    if et:
        rec = struct.pack(">I", 654321) + rec
    return struct.pack(">IHHI", 1500000000, 17 if et else 16, sub, len(rec)) + rec


def as_path_shapes(size):
    """AS_PATH values: every segment kind first, AS_TRANS, empty."""
    return [
        b"",
        seg(2, [64496, AS_TRANS, AS_TRANS], size),
        seg(1, [64496, 64497], size) + seg(2, [AS_TRANS, AS_TRANS], size),
        seg(3, [64500], size) + seg(2, [64496, AS_TRANS], size),
        seg(4, [64500, 64501], size) + seg(2, [AS_TRANS], size),
        seg(2, [AS_TRANS], size),
        seg(2, [64496], size) + seg(1, [AS_TRANS, 64497], size),
    ]


AS4_PATH_SHAPES = [
    None,
    b"",
    seg(2, [4200000001, 4200000002], 4),
    seg(1, [4200000001, 4200000002], 4),
    seg(3, [4200000003], 4) + seg(2, [4200000001], 4),
    seg(4, [4200000003, 4200000004], 4),
    seg(2, [4200000001, 4200000002, 4200000003, 4200000004, 4200000005], 4),  # longer than AS_PATH
    seg(2, [AS_TRANS], 4),
]


def hand_made_seeds():
    nlri = bytes([24, 203, 0, 113])
    base = attr(0x40, 1, b"\x00") + attr(0x40, 3, bytes([192, 0, 2, 1]))
    aggregators = [
        b"",
        attr(0xC0, 7, struct.pack(">H", AS_TRANS) + bytes([198, 51, 100, 1]))
        + attr(0xC0, 18, struct.pack(">I", 4200000009) + bytes([198, 51, 100, 9])),
        attr(0xC0, 7, struct.pack(">H", 64497) + bytes([198, 51, 100, 1]))
        + attr(0xC0, 18, struct.pack(">I", 4200000009) + bytes([198, 51, 100, 9])),
    ]
    for size in (2, 4):
        for i, path in enumerate(as_path_shapes(size)):
            for j, as4 in enumerate(AS4_PATH_SHAPES):
                a = base + attr(0x40, 2, path)
                if as4 is not None:
                    a += attr(0xC0, 17, as4)
                a += aggregators[(i + j) % len(aggregators)]
                rec = bgp4mp_update(size, a, nlri, v6_peer=(i + j) % 4 == 3, et=(i * j) % 5 == 1)
                write(os.path.join(HERE, "MrtRecords"), rec)
                write(os.path.join(HERE, "AttributeRoundTrip"), bytes([1 if size == 4 else 0]) + a)
    # IPv6 next hops and peers whose text has one group of zeros, or a mapped IPv4 address.
    for nh in ("2001:7f8:30:0:2:1:0:8447", "::ffff:192.0.2.6", "fe80::1:0:0:1"):
        import ipaddress
        raw = ipaddress.IPv6Address(nh).packed
        mp = struct.pack(">HBB", 2, 1, 16) + raw + b"\x00" + bytes([48, 0x20, 0x01, 0x0D, 0xB8, 0, 1])
        a = attr(0x40, 1, b"\x00") + attr(0x40, 2, seg(2, [64496], 4)) + attr(0x80, 14, mp)
        write(os.path.join(HERE, "MrtRecords"), bgp4mp_update(4, a, b"", v6_peer=True))


# Selector bytes follow the switch in fuzz/StringForms.h.
TEXTS = [
    (0, "Value('Routing::Bgp::PathAttributesContents', ** {'tag': 7, 'medStorage': 10, "
        "'localPrefStorage': 100, 'nextHop': None, 'aspathAttr': None, 'clusterList': None, "
        "'commonFlagsStorage': 1234, 'preference': 1})"),
    (1, "Value('Routing::Bgp::PmsiTunnelContent', ** {'tunnelType': 'tunnelTypeIngressReplication', "
        "'flags': Value('Routing::Bgp::PmsiTunnel::Flags', ** {'flagunspecified0x01': True, "
        "'flagLeafInformationRequired': True}), 'mplsLabel': 1048575})"),
    (1, "Value('Routing::Bgp::PmsiTunnelContent', ** {'tunnelType': 9, 'mplsLabel': 16})"),
    (2, "Value('Routing::Bgp::PmsiTunnelPimContent', ** {'tunnelType': 'tunnelTypePimSsmTree', "
        "'mplsLabel': 0, 'senderAddr': '2001:db8::1', 'multicastGroup': 'ff3e::8000:1'})"),
    (3, "Value('Routing::Bgp::PmsiTunnelMldpP2mpLspContent', ** {'tunnelType': "
        "'tunnelTypeMldpP2mpLsp', 'mplsLabel': 3, 'rootAddress': '192.0.2.1', 'opaqueValueType': 1})"),
    (4, "Value('Routing::Bgp::PmsiTunnelMldpP2mpGenericLspIdContent', ** {'tunnelType': "
        "'tunnelTypeMldpP2mpLsp', 'rootAddress': '10.0.0.1', 'opaqueValueType': 1, 'lspId': 4294967295})"),
    (5, "Value('Routing::Bgp::PrefixSidContent', ** {'labelIndex': 100, 'originatorSrgb': "
        "Value('Routing::Bgp::OriginatorSrgbTlvContent', ** {'srgb': [Value('Routing::Bgp::SrgbRange', "
        "** {'base': 16000, 'range': 8000}), Value('Routing::Bgp::SrgbRange', ** {'base': 100000, "
        "'range': 1000})]}), "
        "'srv6Service': None})"),
    (5, "Value('Routing::Bgp::PrefixSidContent', ** {'labelIndex': None, 'originatorSrgb': None, "
        "'srv6Service': Value('Routing::Bgp::Srv6ServiceTlvContent', ** {'l3Service': False, "
        "'sidValue': '2001:db8::5', 'endpointBehavior': 19, 'sidStructureTlvContent': "
        "Value('Routing::Bgp::Srv6SidStructureTlvContent', ** {'locBlockLen': 40, "
        "'locNodeLen': 24, 'fnLen': 16, 'argLen': 0, 'transLen': 16, 'transOff': 64})})})"),
    (6, "Value('Routing::Bgp::Srv6ServiceTlvContent', ** {'l3Service': True, 'sidValue': "
        "'fc00::1', 'endpointBehavior': 63})"),
    (7, "Value('Routing::Bgp::AspathAttrCanonicalSerializeResult', ** {'needAs4Path': True, "
        "'bytes': '40020a02025ba000640000fde9'})"),
    (7, "Value('Routing::Bgp::AspathAttrCanonicalSerializeResult', ** {'needAs4Path': True, "
        "'bytes': '400208010200640000fde9'})"),
    (7, "Value('Routing::Bgp::AspathAttrCanonicalSerializeResult', ** {'needAs4Path': False, "
        "'bytes': '40020c0301fde802025ba05ba0'})"),
    (7, "Value('Routing::Bgp::AspathAttrCanonicalSerializeResult', ** {'needAs4Path': False, "
        "'bytes': '400200'})"),
    (8, "Value('Routing::Bgp::TunnelEncapTlvContentBase', ** {'tunnelType': 8, 'endpoint': "
        "Value('Routing::Bgp::EndpointSubTlvContent', ** {'address': '192.0.2.1'})})"),
    (9, "Value('Routing::Bgp::TunnelEncapTlvUnparsedContent', ** {'tunnelType': 2, 'endpoint': "
        "None, 'tlvLen': 300, 'tunnelTlvData': 'c0ffee'})"),
    (10, "Value('Routing::Bgp::VxlanTunnelTlvContent', ** {'tunnelType': 8, 'endpoint': "
         "Value('Routing::Bgp::EndpointSubTlvContent', ** {'address': '2001:db8::9'}), 'color': "
         "Value('Routing::Bgp::ColorSubTlvContent', ** {'flags': 1, 'color': 9})})"),
    (11, "Value('Routing::Bgp::UnparsedSubTlvContent', ** {'subTlvType': 200, 'subTlvLen': 2, "
         "'subTlvData': '0102'})"),
    (12, "Value('Routing::Bgp::EndpointSubTlvContent', ** {'address': '10.1.2.3'})"),
    (13, "Value('Routing::Bgp::ColorSubTlvContent', ** {'flags': 0, 'color': 4294967295})"),
    (14, "Value('Routing::Bgp::ClusterListContent', ** {'originatorId': '10.0.0.1', "
         "'clusterId': ['10.0.0.2', '10.0.0.3']})"),
    (15, "Value('Routing::Bgp::DomainPathContent', ** {'domainSegments': ['65000:0/0x00', '4200000000:65535/0xff']})"),
    (16, "Value('Routing::Bgp::AggregatorContent', ** {'autonomousSystem': '65536', "
         "'aggregatorId': '192.0.2.7'})"),
    (17, "Value('Routing::Bgp::AccumulatedIgpMetricContent', ** {'metric': "
         "18446744073709551615})"),
]


def text_seeds():
    for selector, text in TEXTS:
        write(os.path.join(HERE, "StringForms"), bytes([selector]) + text.encode())


def main():
    mrt_dir = sys.argv[1] if len(sys.argv) > 1 else os.path.join(
        HERE, "..", "..", "..", "shared", "data", "mrt")
    mrt_seeds(mrt_dir)
    hand_made_seeds()
    text_seeds()


if __name__ == "__main__":
    main()
