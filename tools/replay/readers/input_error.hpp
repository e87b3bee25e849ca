// The readers' way of rejecting one entry or line with a message.
#ifndef ORVANE_REPLAY_INPUT_ERROR_HPP
#define ORVANE_REPLAY_INPUT_ERROR_HPP

#include <stdexcept>
#include <string>

namespace replay {

class InputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The JSON parser's message without its exception-class prefix; it already
// names the line and column.
inline std::string DescribeParseError(const std::string &what)
{
    const size_t close = what.find("] ");
    return close == std::string::npos ? what : what.substr(close + 2);
}

}  // namespace replay

#endif
