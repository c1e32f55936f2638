// Store bytes of one object of each interned attribute class, by the store's own counter for the
// class: the figure behind each family's memory design (16-byte header, cached hash, fields inline,
// sub-objects behind 4-byte references). One interning per run; the counter is the result.
//   build/release/orv_bench --benchmark_filter='StoreBytes'
#include "Mel/Bytes.h"
#include "MelStash/StoreManager.h"
#include "OrvBgp/AddressNexthop.h"
#include "OrvBgp/BgpPathAttributesMisc.h"
#include "OrvBgp/BgpTunnelEncap.h"
#include "OrvBgp/BgpTunnelEncapSubTlv.h"
#include "OrvBgp/PmsiTunnel.h"
#include "OrvBgp/SrTeAttributes.h"
#include "OrvBgp/Srv6ServiceTlv.h"
#include "OrvBgp/VxlanTunnelTlv.h"
#include "Routing/CommList.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

namespace {

using namespace Routing::Bgp;

Orvnet::IpGenAddr addr(const char* text) {
    return Orvnet::IpGenAddr::fromString(text);
}

// Interns make() once per iteration (a content no other object has) and reports the store bytes
// the class's counter grew by, and the store block of the object.
template <class X, class Make>
void storeBytes(benchmark::State& state, Make make) {
    int64_t bytes = 0;
    size_t block = 0;
    for (auto _ : state) {
        const int64_t before = X::melStashTypeStats().bytes.load();
        auto obj = make();
        bytes = X::melStashTypeStats().bytes.load() - before;
        block = MelStash::StoreManager::instance().blockSize(obj.get());
        benchmark::DoNotOptimize(obj.get());
    }
    state.counters["storeBytes"] = double(bytes);
    state.counters["blockBytes"] = double(block);
}

// ---- AIGP, AGGREGATOR: header and fields, nothing behind a second pointer.
void BM_StoreBytes_AccumulatedIgpMetric(benchmark::State& s) {
    storeBytes<AccumulatedIgpMetric>(s,
                                     [] { return accumulatedIgpMetricFactory(0x5eed5eed5eedULL); });
}
void BM_StoreBytes_Aggregator(benchmark::State& s) {
    storeBytes<Aggregator>(
        s, [] { return aggregatorFactory(64512, Orvnet::IpAddr::fromString("10.9.8.7")); });
}

// ---- Communities: header and inline values, in 8-byte steps.
void BM_StoreBytes_CommList(benchmark::State& s) {
    const size_t n = size_t(s.range(0));
    storeBytes<Routing::CommList>(s, [n] {
        return Routing::CommList::intern(std::vector<uint32_t>(n, 0x5eed0000u + uint32_t(n)));
    });
}

// ---- Next hop
void BM_StoreBytes_AddressNexthop(benchmark::State& s) {
    AddressNexthopDedupTable table(BgpVrfIdBase(0), Orvnet::AfiSafi::ipv4Unicast());
    storeBytes<AddressNexthop>(s, [&] { return table.nexthop(addr("2001:db8::99")); });
}

// ---- PMSI tunnel: header 16, common fields 8, then each class's own fields inline.
void BM_StoreBytes_PmsiTunnel(benchmark::State& s) {
    using F = PmsiTunnel::Flags;
    switch (s.range(0)) {
    case 0:
        s.SetLabel("ingress replication");
        storeBytes<PmsiTunnelIngressReplication>(
            s, [] { return pmsiTunnelIngressReplicationFactory(F(), 901, addr("10.9.0.1")); });
        break;
    case 1:
        s.SetLabel("PIM");
        storeBytes<PmsiTunnelPim>(s, [] {
            return pmsiTunnelPimFactory(F(), PmsiTunnel::tunnelTypePimSmTree, 902, addr("10.9.0.1"),
                                        addr("239.9.9.9"));
        });
        break;
    case 2:
        s.SetLabel("mLDP P2MP generic LSP id");
        storeBytes<PmsiTunnelMldpP2mpGenericLspId>(
            s, [] { return pmsiTunnelMldpP2mpGenericLspIdFactory(F(), 903, addr("10.9.0.1"), 1); });
        break;
    case 3: {
        s.SetLabel("general");
        auto id = pmsiTunnelIdentifierFactory(
            std::vector<uint8_t>{0x0a, 0x09, 0, 1, 0, 0, 0, 9, 0x0a, 0x09, 0, 2});
        storeBytes<PmsiTunnelGeneral>(s, [&] {
            return pmsiTunnelGeneralFactory(F(), PmsiTunnel::tunnelTypeRsvpTeP2mpLsp, 904, id);
        });
        break;
    }
    default:
        s.SetLabel("identifier");
        storeBytes<PmsiTunnelIdentifier>(s, [] {
            return pmsiTunnelIdentifierFactory(std::vector<uint8_t>{0x0a, 0x09, 0x09});
        });
    }
}

// ---- Prefix SID: header with cached hash 20, then the fields; SRGB ranges inline.
void BM_StoreBytes_PrefixSid(benchmark::State& s) {
    switch (s.range(0)) {
    case 0:
        s.SetLabel("label index TLV");
        storeBytes<LabelIndexTlv>(s, [] { return labelIndexTlvFactory(909090); });
        break;
    case 1:
        s.SetLabel("originator SRGB TLV, 2 ranges");
        storeBytes<OriginatorSrgbTlv>(s, [] {
            return originatorSrgbTlvFactory(std::vector<SrgbRange>{{90000, 1}, {91000, 2}});
        });
        break;
    case 2: {
        s.SetLabel("prefix SID");
        auto label = labelIndexTlvFactory(909091);
        storeBytes<PrefixSid>(s, [&] { return prefixSidFactory(label, nullptr, nullptr); });
        break;
    }
    default:
        s.SetLabel("SRv6 service TLV");
        storeBytes<Srv6ServiceTlv>(s, [] {
            return srv6ServiceTlvFactory(
                Srv6ServiceTlvContent(true, Orvnet::Ip6Addr::fromString("2001:db8::9090"), 19, {}));
        });
    }
}

// ---- Tunnel encapsulation: header, hash, type and length, endpoint reference, counts: 32, then
// inline parts.
void BM_StoreBytes_TunnelEncap(benchmark::State& s) {
    auto unparsed = [](uint16_t type, std::vector<uint8_t> data) {
        return TunnelEncapTlvUnparsed::intern(
            TunnelEncapTlvUnparsedContent(type, Mel::Bytes(data)));
    };
    switch (s.range(0)) {
    case 0:
        s.SetLabel("unparsed TLV, 12 bytes");
        storeBytes<TunnelEncapTlvUnparsed>(s, [&] {
            return unparsed(0x7001, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
        });
        break;
    case 1:
        s.SetLabel("VXLAN TLV");
        storeBytes<VxlanTunnelTlv>(s, [] {
            VxlanTunnelTlvContent c;
            c.endpointIs(EndpointSubTlv::intern(addr("198.18.0.77")));
            return VxlanTunnelTlv::intern(c);
        });
        break;
    case 2: {
        s.SetLabel("attribute of 2 TLVs");
        auto a = unparsed(0x7002, {});
        auto b = unparsed(0x7003, {});
        storeBytes<TunnelEncap>(s, [&] {
            TunnelEncapContent c;
            c.tunnelTlvIs(a);
            c.tunnelTlvIs(b);
            return TunnelEncap::intern(c);
        });
        break;
    }
    case 3:
        s.SetLabel("endpoint sub-TLV");
        storeBytes<EndpointSubTlv>(s, [] { return EndpointSubTlv::intern(addr("198.18.0.78")); });
        break;
    case 4:
        s.SetLabel("color sub-TLV");
        storeBytes<ColorSubTlv>(s, [] { return ColorSubTlv::intern(0x7004); });
        break;
    default:
        s.SetLabel("unparsed sub-TLV, 3 bytes");
        storeBytes<UnparsedSubTlv>(s, [] {
            return UnparsedSubTlv::intern(UnparsedSubTlvContent(0x70, Mel::Bytes({1, 2, 3})));
        });
    }
}

} // namespace

BENCHMARK(BM_StoreBytes_AccumulatedIgpMetric)->Iterations(1);
BENCHMARK(BM_StoreBytes_Aggregator)->Iterations(1);
BENCHMARK(BM_StoreBytes_CommList)->Arg(1)->Arg(10)->Iterations(1);
BENCHMARK(BM_StoreBytes_AddressNexthop)->Iterations(1);
BENCHMARK(BM_StoreBytes_PmsiTunnel)->DenseRange(0, 4)->Iterations(1);
BENCHMARK(BM_StoreBytes_PrefixSid)->DenseRange(0, 3)->Iterations(1);
BENCHMARK(BM_StoreBytes_TunnelEncap)->DenseRange(0, 5)->Iterations(1);
