// Replays what the fuzzers found, and the seed corpus, through the same
// interpreters, so a finding stays fixed once it is fixed.
#include <gtest/gtest.h>

#include <dirent.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "ott_fuzz_driver.hpp"
#include "webpage_fuzz_driver.hpp"

namespace {

using Bytes = std::vector<uint8_t>;

std::string CorpusDir(const char *name)
{
    std::string here = __FILE__;
    return here.substr(0, here.rfind('/')) + "/../fuzz/corpus/" + name;
}

std::vector<std::pair<std::string, Bytes>> ReadCorpus(const char *name)
{
    std::vector<std::pair<std::string, Bytes>> files;
    const std::string dir = CorpusDir(name);
    DIR *d = opendir(dir.c_str());
    if (d == nullptr) {
        return files;
    }
    while (dirent *e = readdir(d)) {
        if (e->d_name[0] == '.') {
            continue;
        }
        std::ifstream in(dir + "/" + e->d_name, std::ios::binary);
        files.emplace_back(e->d_name, Bytes(std::istreambuf_iterator<char>(in), {}));
    }
    closedir(d);
    return files;
}

TEST(FuzzRegression, SeedCorpusRunsClean)
{
    for (const char *kind : {"webpage", "ott"}) {
        const auto files = ReadCorpus(kind);
        EXPECT_FALSE(files.empty()) << "no seeds under " << CorpusDir(kind);
        for (const auto &f : files) {
            const std::string err = kind[0] == 'w' ? orvane_fuzz::RunWebPageProgram(f.second.data(), f.second.size())
                                                   : orvane_fuzz::RunOttProgram(f.second.data(), f.second.size());
            EXPECT_EQ(err, "") << kind << "/" << f.first;
        }
    }
}

// Findings of the page-association fuzzer, as the input bytes it saved.
TEST(FuzzRegression, WebPageFindingsStayFixed)
{
    const std::pair<const char *, Bytes> findings[] = {
        // A request opens page 1 on a flow; timer runs close it; a UCID
        // request on the same flow saved its strings on the closed page,
        // whose node still carried ID 1 behind the flow's cached pointer.
        {"strings saved on a closed page",
         {0x10, 0x61, 0x01, 0x00, 0x00, 0x04, 0x00, 0x01, 0x00, 0x00, 0x12, 0x70, 0x69, 0x64, 0x3d, 0x34, 0x66,
          0x32, 0x61}},
    };
    for (const auto &[what, input] : findings) {
        EXPECT_EQ(orvane_fuzz::RunWebPageProgram(input.data(), input.size()), "") << what;
    }
}

}  // namespace
