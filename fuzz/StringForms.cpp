// libFuzzer entry point of fuzz_StringForms (see StringForms.h).
#include "StringForms.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return OrvFuzz::runTarget(data, size, OrvFuzz::stringForms);
}
