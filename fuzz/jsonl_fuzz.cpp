// libFuzzer target: any bytes as a JSON Lines trace. The reader must neither
// crash nor hang and must make a consistent trace; the line reader must cut
// the input exactly where its newlines are, dropping only over-long lines.
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "jsonl_reader.hpp"
#include "reader_checks.hpp"

namespace {

// The line reader against a plain split, with a cap small enough to be hit.
std::string CheckLines(const std::string &text, size_t cap)
{
    std::istringstream in(text);
    replay::LineReader reader(in, {}, cap);
    std::string line;
    size_t begin = 0;
    while (begin < text.size()) {
        size_t end = text.find('\n', begin);
        end = end == std::string::npos ? text.size() : end;
        const std::string want = text.substr(begin, end - begin);
        const replay::LineReader::Status status = reader.Next(&line);
        if (want.size() > cap ? status != replay::LineReader::Status::kTooLong
                              : status != replay::LineReader::Status::kLine || line != want) {
            return "line reader parts from the split at byte " + std::to_string(begin);
        }
        begin = end + 1;
    }
    return reader.Next(&line) == replay::LineReader::Status::kEnd ? "" : "line reader reads past the end";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    std::string err = orvane_fuzz::CheckTrace(replay::ReadJsonl("fuzz.jsonl", text));
    if (err.empty()) {
        err = CheckLines(text, size == 0 ? 1 : 1 + data[0] % 64);
    }
    if (!err.empty()) {
        std::fprintf(stderr, "JSON Lines reader invariant broken: %s\n", err.c_str());
        std::abort();
    }
    return 0;
}
