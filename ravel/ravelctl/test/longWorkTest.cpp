#include "longWork.hpp"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <sstream>

namespace lumo::ravelctl {
namespace {

/// What is printed, from any thread, to be waited for.
class Printed : public std::stringbuf
{
public:
    int sync() override
    {
        const std::lock_guard lock(m_mutex);
        ++m_times;
        m_printed.notify_all();
        return 0;
    }

    void Await()
    {
        std::unique_lock lock(m_mutex);
        m_printed.wait(lock, [this] { return m_times > 0; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_printed;
    int m_times = 0;
};

TEST(LongWorkTest, WorkThatIsOverSoonSaysNothing)
{
    for (const StatusLine::Style style :
         {StatusLine::Style::Refresh, StatusLine::Style::Plain, StatusLine::Style::Quiet}) {
        std::ostringstream out;
        {
            LongWork sut(style, out, "reading");
            sut.Tell("writing");
        }
        EXPECT_EQ(out.str(), "");
    }
}

TEST(LongWorkTest, LongWorkSaysWhatIsDoneAndSinceWhen)
{
    Printed printed;
    std::ostream out(&printed);
    LongWork sut(StatusLine::Style::Plain, out, "reading");
    sut.Tell("writing a.fits");
    printed.Await();
    sut.Finish();
    EXPECT_EQ(printed.str().rfind("writing a.fits (2 s)\n", 0), 0U) << printed.str();
}

TEST(LongWorkTest, ALineThatStaysIsPrintedAtOnce)
{
    std::ostringstream out;
    LongWork sut(StatusLine::Style::Refresh, out, "reading");
    sut.Note("computing all modes");
    sut.Finish();
    EXPECT_EQ(out.str(), "computing all modes\n");
}

}  // namespace
}  // namespace lumo::ravelctl
