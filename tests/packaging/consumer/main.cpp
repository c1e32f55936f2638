// Consumer of the installed library: includes installed headers, calls into the shared object.
//   find_package(OrvBgpPathAttributes) + OrvBgpPathAttributes::OrvBgpPathAttributes, or
//   c++ -std=c++20 main.cpp $(pkg-config --cflags --libs OrvBgpPathAttributes)
#define ORV_UNIT "OrvConsumer/Main"
#include "Keel/Assert.h"
#include "Mel/Bytes.h"

#include <cstdio>

int main() {
    Mel::Bytes b = Mel::Bytes::fromHex("c0 08 04 fd e8 00 01");
    ORV_ASSERT(b.size() == 7);
    Mel::Bytes copy = b;
    ORV_ASSERT(copy == b);
    std::printf("consumer ok %s\n", copy.toHex().c_str());
    return 0;
}
