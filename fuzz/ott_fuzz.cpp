// libFuzzer target: OTT transactions, merges and speed reads on a few flows
// and sessions over one pool, against the oracle of fuzz/ott_fuzz_driver.hpp.
#include <cstdio>
#include <cstdlib>

#include "ott_fuzz_driver.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string err = orvane_fuzz::RunOttProgram(data, size);
    if (!err.empty()) {
        std::fprintf(stderr, "OTT invariant broken: %s\n", err.c_str());
        std::abort();
    }
    return 0;
}
