// Checks shared by the fuzz targets and by the test that replays their corpora. A failed check
// throws CheckFailure: the libFuzzer entry point turns it into a crash (so the input is saved),
// the replay test into a failure that names the input.
//   ORV_FUZZ_CHECK(back == first, "text read back differs: " + printed);
//   extern "C" int LLVMFuzzerTestOneInput(const uint8_t* d, size_t n) {
//       return OrvFuzz::runTarget(d, n, OrvFuzz::mrtRecords); }
#pragma once

#include "MelStash/StoreManager.h"
#include "OrvBgp/OrvBgpNexthop.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <stdexcept>
#include <string>

namespace OrvFuzz {

// Deliberately not a Mel::Exception: targets catch those as the documented answer to bad input.
class CheckFailure : public std::logic_error {
public:
    using std::logic_error::logic_error;
};

[[noreturn]] inline void checkFailed(const char* cond, const char* file, int line,
                                     const std::string& detail) {
    throw CheckFailure(std::string(file) + ":" + std::to_string(line) + ": check failed: " + cond +
                       (detail.empty() ? "" : ": " + detail));
}

#define ORV_FUZZ_CHECK(cond, detail)                                                               \
    do {                                                                                           \
        if (!(cond)) ::OrvFuzz::checkFailed(#cond, __FILE__, __LINE__, (detail));                  \
    } while (0)

using Target = void (*)(std::span<const uint8_t>);

// Runs one input and checks that everything it put in the store has gone again once its holders
// are gone: the targets keep nothing between inputs. Objects the library keeps for the life of the
// process (the next-hop metric table's standing entries) are made first.
inline void runChecked(Target target, std::span<const uint8_t> input) {
    Routing::Bgp::BgpMetricPrefDedupTable::instance();
    const int64_t before = MelStash::StoreManager::instance().liveObjects();
    target(input);
    const int64_t after = MelStash::StoreManager::instance().liveObjects();
    ORV_FUZZ_CHECK(after == before, "store objects before " + std::to_string(before) + ", after " +
                                        std::to_string(after));
}

// The libFuzzer side: a failed check aborts with its message. Any other exception escapes, which
// libFuzzer reports as a crash too.
inline int runTarget(const uint8_t* data, size_t size, Target target) {
    try {
        runChecked(target, {data, size});
    } catch (const CheckFailure& e) {
        std::fprintf(stderr, "%s\n", e.what());
        std::abort();
    }
    return 0;
}

} // namespace OrvFuzz
