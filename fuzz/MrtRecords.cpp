// libFuzzer entry point of fuzz_MrtRecords (see MrtRecords.h).
#include "MrtRecords.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return OrvFuzz::runTarget(data, size, OrvFuzz::mrtRecords);
}
