// libFuzzer target: any bytes as a HAR file. The reader must neither crash
// nor hang, and must make a consistent trace of whatever it accepts.
#include <cstdio>
#include <cstdlib>

#include "reader_checks.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    replay::ReadOptions options;
    // Both path conventions and the cache switch, chosen by the input itself.
    options.keepSlash = size % 2 == 1;
    options.withCache = size % 4 >= 2;
    const std::string err = orvane_fuzz::CheckTrace(replay::ReadHar("fuzz.har", text, options));
    if (!err.empty()) {
        std::fprintf(stderr, "HAR reader invariant broken: %s\n", err.c_str());
        std::abort();
    }
    return 0;
}
