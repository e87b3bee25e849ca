// libFuzzer target: the bytes of one connection, both ways, through the
// HTTP/1.x reading (see fuzz/capture_fuzz_driver.hpp).
#include <cstdio>
#include <cstdlib>

#include "capture_fuzz_driver.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string err = orvane_fuzz::RunCaptureHttpProgram(data, size);
    if (!err.empty()) {
        std::fprintf(stderr, "HTTP reading invariant broken: %s\n", err.c_str());
        std::abort();
    }
    return 0;
}
