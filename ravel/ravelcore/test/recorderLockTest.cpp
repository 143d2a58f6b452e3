#include "support/lockWatch.hpp"
#include "support/logCapture.hpp"

#include <lumo/ravelcore/recorder.hpp>

#include <gtest/gtest.h>

#include <vector>

namespace lumo::ravelcore {
namespace {

TEST(RecorderLockTest, AddSampleTakesNoLock)
{
    const test::LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
    const std::vector<float> sample(60, 1.0F);
    Recorder filling("filling");
    Recorder wrapping("wrapping");
    Recorder decimating("decimating");
    for (Recorder* const recorder : {&filling, &wrapping, &decimating}) {
        recorder->Init(10, 60);
        recorder->Start(recorder != &filling, recorder == &decimating ? 3 : 0);
    }
    const test::LockWatch watch;
    for (int call = 0; call < 100; ++call) {
        filling.AddSample(call, sample.data());
        wrapping.AddSample(call, sample.data());
        decimating.AddSample(call, sample.data());
    }
    EXPECT_EQ(watch.GetCount(), 0);
    EXPECT_FALSE(filling.IsStarted());
    EXPECT_EQ(wrapping.GetIndex(), 9);
    EXPECT_EQ(decimating.GetIndex(), 2);  // 33 recorded, in slots 0 to 9 over and over
}

}  // namespace
}  // namespace lumo::ravelcore
