// libFuzzer target: one TCP connection's segments, or a whole capture file,
// through the capture reader (see fuzz/capture_fuzz_driver.hpp).
#include <cstdio>
#include <cstdlib>

#include "capture_fuzz_driver.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string err = orvane_fuzz::RunCaptureTcpProgram(data, size);
    if (!err.empty()) {
        std::fprintf(stderr, "capture reader invariant broken: %s\n", err.c_str());
        std::abort();
    }
    return 0;
}
