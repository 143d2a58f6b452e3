#pragma once

#include "support/logCapture.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace lumo::ravelcore::test {

/// Everything that was logged, in order, "LEVEL text"; of entry lines only the function, after the rest of them and the
/// logger of all lines have been checked.
inline std::vector<std::string> Story(const LogCapture& log)
{
    std::vector<std::string> lines;
    for (const LogEvent& event : log.Events()) {
        EXPECT_EQ(event.logger, "ravelcore");
        EXPECT_FALSE(event.function.empty());
        if (event.level != log4cplus::TRACE_LOG_LEVEL) {
            lines.push_back((event.level == log4cplus::DEBUG_LOG_LEVEL ? "DEBUG " : "HIGHER ") + event.message);
            continue;
        }
        const std::string head = event.file + " ";
        const std::string tail = " " + std::to_string(event.line);
        EXPECT_TRUE(event.message.starts_with(head)) << event.message;
        EXPECT_TRUE(event.message.ends_with(tail)) << event.message;
        EXPECT_TRUE(event.file.starts_with("ravel/ravelcore/src/")) << event.file;
        lines.push_back("TRACE " + event.message.substr(head.size(), event.message.size() - head.size() - tail.size()));
    }
    return lines;
}

}  // namespace lumo::ravelcore::test
