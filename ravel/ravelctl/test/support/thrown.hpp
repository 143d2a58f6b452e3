#pragma once

#include <gtest/gtest.h>

#include <string>

namespace lumo::ravelctl::test {

/// The message of the `Error` that `action` throws, which must be one line; "" (and a failure) when it throws none.
template <typename Error, typename Action>
std::string ThrownLine(const Action& action)
{
    try {
        action();
    } catch (const Error& error) {
        const std::string line = error.what();
        EXPECT_FALSE(line.empty());
        EXPECT_EQ(line.find('\n'), std::string::npos) << "more than one line: " << line;
        return line;
    }
    ADD_FAILURE() << "nothing was thrown";
    return "";
}

}  // namespace lumo::ravelctl::test
