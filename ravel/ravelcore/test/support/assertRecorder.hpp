#pragma once

#include <brisk/assert.hpp>

#include <string>
#include <vector>

namespace lumo::ravelcore::test {

/// Notes the calls of brisk::Assert that fail while it lives, instead of reporting them.
/// Thread: one at a time, one thread.
class AssertRecorder
{
public:
    struct Failure
    {
        std::string file;
        std::string function;
        int line = 0;
    };

    AssertRecorder() : m_old_handler(brisk::SetAssertHandler(&AssertRecorder::Note)) { Seen().clear(); }
    ~AssertRecorder() { brisk::SetAssertHandler(m_old_handler); }

    AssertRecorder(const AssertRecorder&) = delete;
    AssertRecorder& operator=(const AssertRecorder&) = delete;

    const std::vector<Failure>& GetFailures() const { return Seen(); }

private:
    static void Note(const char* file, const char* function, int line) { Seen().push_back({file, function, line}); }

    static std::vector<Failure>& Seen()
    {
        static std::vector<Failure> seen;
        return seen;
    }

    brisk::AssertHandler m_old_handler;
};

}  // namespace lumo::ravelcore::test
