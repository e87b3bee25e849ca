// Small checks shared by the tests.
#ifndef ORVANE_TESTS_TEST_UTIL_HPP
#define ORVANE_TESTS_TEST_UTIL_HPP

#include <cstdint>
#include <string>
#include <vector>

// Several integer fields checked in one comparison: EXPECT_EQ(Fields(a, b), Fields(1, 2)).
template <class... T>
std::vector<uint64_t> Fields(T... v)
{
    return {static_cast<uint64_t>(v)...};
}

// How often what occurs in text, overlaps included.
inline size_t Count(const std::string &text, const std::string &what)
{
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
        ++n;
    }
    return n;
}

#endif
