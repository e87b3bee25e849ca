// libFuzzer target: the input is a daemon's life on two or three page threads
// (see fuzz/webpage_fuzz_driver.hpp); any broken rule aborts with its story.
#include <cstdio>
#include <cstdlib>

#include "webpage_fuzz_driver.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string err = orvane_fuzz::RunWebPageProgram(data, size);
    if (!err.empty()) {
        std::fprintf(stderr, "page association invariant broken: %s\n", err.c_str());
        std::abort();
    }
    return 0;
}
