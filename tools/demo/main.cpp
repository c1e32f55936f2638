// orv-demo: a short tour of the library for `make demo`.
//   build/release/orv-demo
#include "Mel/Bytes.h"

#include <cstdio>

int main() {
    // An ORIGINATOR_ID attribute and a CLUSTER_LIST with two ids, as they go on the wire.
    const Mel::Bytes originator = Mel::Bytes::fromHex("80 09 04 0a 00 00 01");
    const Mel::Bytes clusterList = Mel::Bytes::fromHex("80 0a 08 0a 00 00 02 0a 00 00 03");
    const Mel::Bytes again = clusterList; // copies share one buffer

    std::printf("ORIGINATOR_ID  %s (%zu bytes)\n", originator.toHex().c_str(), originator.size());
    std::printf("CLUSTER_LIST   %s (%zu bytes)\n", clusterList.toHex().c_str(), clusterList.size());
    std::printf("shared buffer  %s\n", again.data() == clusterList.data() ? "yes" : "no");
    return 0;
}
