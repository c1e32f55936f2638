// libFuzzer entry point of fuzz_AttributeRoundTrip (see AttributeRoundTrip.h).
#include "AttributeRoundTrip.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return OrvFuzz::runTarget(data, size, OrvFuzz::attributeRoundTrip);
}
