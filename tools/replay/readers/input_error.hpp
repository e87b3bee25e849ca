// The readers' way of rejecting one entry or line with a message. Messages
// quote recorded values only as their type and a short, escaped prefix: a
// value may be megabytes long, nested a hundred thousand deep, or hold
// terminal control sequences.
#ifndef ORVANE_REPLAY_INPUT_ERROR_HPP
#define ORVANE_REPLAY_INPUT_ERROR_HPP

#include <stdexcept>
#include <string>

#include <nlohmann/json.hpp>

#include "text_util.hpp"

namespace replay {

class InputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Characters of a recorded text quoted in a message.
constexpr size_t kQuotedChars = 60;

// A recorded text for a message: escaped, cut, in quotes.
inline std::string Quoted(const std::string &text) { return "\"" + Printable(text, kQuotedChars) + "\""; }

// A JSON value for a message: scalars as written (cut), strings quoted,
// arrays and objects by their type alone; nothing is serialised recursively.
inline std::string ValueText(const nlohmann::json &value)
{
    switch (value.type()) {
    case nlohmann::json::value_t::string:
        return "string " + Quoted(value.get_ref<const std::string &>());
    case nlohmann::json::value_t::array:
        return "an array";
    case nlohmann::json::value_t::object:
        return "an object";
    case nlohmann::json::value_t::binary:
    case nlohmann::json::value_t::discarded:
        return "a value";
    default:
        return Printable(value.dump(), kQuotedChars);  // number, true, false, null
    }
}

// The JSON parser's message without its exception-class prefix; it already
// names the line and column, and quotes the input it stopped at.
inline std::string DescribeParseError(const std::string &what)
{
    const size_t close = what.find("] ");
    return Printable(close == std::string::npos ? what : what.substr(close + 2), 200);
}

}  // namespace replay

#endif
