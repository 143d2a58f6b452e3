#pragma once

#include <brisk/exception.hpp>

#include <gtest/gtest.h>

#include <list>
#include <string>

namespace lumo::ravelcore::test {

/// What `action` throws; a failure of the test, and an empty exception, when it throws nothing.
template <typename Action>
brisk::Exception Thrown(Action&& action)
{
    try {
        action();
    } catch (const brisk::Exception& seen) {
        return seen;
    }
    ADD_FAILURE() << "nothing was thrown";
    return brisk::Exception("");
}

/// Expects all fields that the library gives its exceptions; `file` has no directories.
inline void ExpectException(const brisk::Exception& seen, const std::string& message, const std::string& function,
                            const std::string& file)
{
    EXPECT_EQ(seen.GetMessage(), message);
    EXPECT_STREQ(seen.what(), message.c_str());
    EXPECT_EQ(seen.GetFunctionName(), function);
    EXPECT_EQ(seen.GetFileName(), file);
    EXPECT_GT(seen.GetLineNumber(), 0);
    EXPECT_EQ(seen.GetClassName(), "brisk::Exception");
    EXPECT_EQ(seen.GetExceptionStack(), std::list<std::string>{"brisk::Exception"});
}

}  // namespace lumo::ravelcore::test
