#include "support/allocationGuard.hpp"
#include "support/assertRecorder.hpp"
#include "support/logCapture.hpp"
#include "support/logHook.hpp"
#include "support/story.hpp"
#include "support/thrown.hpp"

#include <lumo/ravelcore/recorder.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

namespace lumo::ravelcore {
namespace {

using test::AllocationGuard;
using test::AssertRecorder;
using test::ExpectException;
using test::LogCapture;
using test::LogEvent;
using test::LogHook;
using test::Story;
using test::Thrown;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::Field;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::SizeIs;

/// A sample that says which call it comes from.
std::vector<float> SampleOf(int call, int size)
{
    return std::vector<float>(static_cast<std::size_t>(size), static_cast<float>(call));
}

/// Adds samples number `from` to `to`, each with its number as time stamp and in every element.
void Add(Recorder& sut, int from, int to)
{
    for (int call = from; call <= to; ++call) {
        sut.AddSample(call, SampleOf(call, sut.GetSampleSize()).data());
    }
}

Recorder MakeStarted(int num_samples, int sample_size, bool loopback = false, int decimation = 0)
{
    Recorder recorder("rec");
    recorder.Init(num_samples, sample_size);
    recorder.Start(loopback, decimation);
    return recorder;
}

/// The numbers of the samples in slots 0 to GetIndex(), by their time stamps.
std::vector<double> Recorded(const Recorder& sut)
{
    return {sut.GetTimestamps().begin(), sut.GetTimestamps().begin() + (sut.GetIndex() + 1)};
}

// ---- construction ------------------------------------------------------------------------------------------------

static_assert(std::has_virtual_destructor_v<Recorder>);
static_assert(std::is_copy_constructible_v<Recorder> && std::is_copy_assignable_v<Recorder>);

void ExpectInitialState(const Recorder& sut)
{
    EXPECT_EQ(sut.GetNumSamples(), 0);
    EXPECT_EQ(sut.GetSampleSize(), 0);
    EXPECT_EQ(sut.GetIndex(), -1);
    EXPECT_FALSE(sut.IsStarted());
    EXPECT_THAT(sut.GetSamples(), IsEmpty());
    EXPECT_THAT(sut.GetTimestamps(), IsEmpty());
}

TEST(RecorderTest, NewRecorderHoldsNothing)
{
    const Recorder sut;
    EXPECT_EQ(sut.GetName(), "");
    ExpectInitialState(sut);
    const Recorder named("modes in");
    EXPECT_EQ(named.GetName(), "modes in");
    ExpectInitialState(named);
}

TEST(RecorderTest, EveryOperationBeginsWithItsTraceLine)
{
    const LogCapture log("ravelcore");
    {
        Recorder sut("rec");
        const Recorder copy(sut);
        sut.Init(3, 2);
        sut.Start(false, 0);
        sut.AddSample(0.5, SampleOf(1, 2).data());
        sut.Stop();
        sut.ResetIndex();
        sut = copy;
    }
    EXPECT_THAT(Story(log),
                ElementsAre("TRACE Recorder", "TRACE Recorder", "TRACE Init",
                            "DEBUG Initialized recorded rec for 3 samples of size 2 (loopback = 0, decimation = 0).",
                            "TRACE Start", "TRACE ResetIndex", "DEBUG Started recorder rec (loopback 0, decimation 0).",
                            "TRACE AddSample", "TRACE Stop",
                            "DEBUG Stopped recorder rec at sample 0 timestamp 0.5s (loopback 0).", "TRACE ResetIndex",
                            "TRACE operator=", "TRACE ~Recorder", "TRACE ~Recorder"));
    EXPECT_THAT(log.Events(), Each(Field(&LogEvent::file, "ravel/ravelcore/src/recorder.cpp")));
}

TEST(RecorderTest, OperationsThatDoNothingBeginWithTheirTraceLineToo)
{
    const LogCapture log("ravelcore");
    {
        Recorder sut;
        EXPECT_THROW(sut.Init(0, 5), brisk::Exception);
        sut.AddSample(0.5, SampleOf(1, 2).data());
        sut.Stop();
        sut.Save("");
        const Recorder& alias = sut;
        sut = alias;
    }
    EXPECT_THAT(Story(log),
                ElementsAre("TRACE Recorder", "TRACE Init", "TRACE AddSample", "TRACE Stop", "TRACE Save",
                            "DEBUG Recorder  has no samples to save.", "TRACE operator=", "TRACE ~Recorder"));
}

TEST(RecorderTest, EveryAccessorBeginsWithItsTraceLine)
{
    const Recorder sut("rec");
    const LogCapture log("ravelcore");
    sut.GetSamples();
    sut.GetTimestamps();
    sut.GetSampleSize();
    sut.GetNumSamples();
    sut.GetIndex();
    sut.GetName();
    sut.IsStarted();
    const std::string header = "ravel/ravelcore/src/include/lumo/ravelcore/recorder\\.hpp ";
    EXPECT_THAT(log.Messages(log4cplus::TRACE_LOG_LEVEL),
                ElementsAre(MatchesRegex(header + "GetSamples [0-9]+"), MatchesRegex(header + "GetTimestamps [0-9]+"),
                            MatchesRegex(header + "GetSampleSize [0-9]+"),
                            MatchesRegex(header + "GetNumSamples [0-9]+"), MatchesRegex(header + "GetIndex [0-9]+"),
                            MatchesRegex(header + "GetName [0-9]+"), MatchesRegex(header + "IsStarted [0-9]+")));
}

// ---- Init --------------------------------------------------------------------------------------------------------

TEST(RecorderTest, InitSizesTheBuffersAndZeroesThem)
{
    Recorder sut("rec");
    sut.Init(3, 2);
    EXPECT_EQ(sut.GetNumSamples(), 3);
    EXPECT_EQ(sut.GetSampleSize(), 2);
    EXPECT_EQ(sut.GetIndex(), -1);
    EXPECT_FALSE(sut.IsStarted());
    EXPECT_THAT(sut.GetTimestamps(), ElementsAre(0.0, 0.0, 0.0));
    EXPECT_THAT(sut.GetSamples(), ElementsAre(0.0F, 0.0F, 0.0F, 0.0F, 0.0F, 0.0F));
}

TEST(RecorderTest, InitZeroesWhatWasRecordedBefore)
{
    Recorder sut = MakeStarted(3, 2);
    Add(sut, 1, 3);
    sut.Init(3, 2);
    EXPECT_EQ(sut.GetIndex(), -1);
    EXPECT_THAT(sut.GetTimestamps(), Each(0.0));
    EXPECT_THAT(sut.GetSamples(), Each(0.0F));
}

TEST(RecorderTest, InitSaysRecordedForWhatItHasInitialised)
{
    const LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
    Recorder sut("rec");
    sut.Init(3, 2);
    sut.Start(true, 5);
    sut.Init(4, 1);
    EXPECT_THAT(log.Messages(log4cplus::DEBUG_LOG_LEVEL),
                ElementsAre("Initialized recorded rec for 3 samples of size 2 (loopback = 0, decimation = 0).",
                            "Started recorder rec (loopback 1, decimation 5).",
                            "Initialized recorded rec for 4 samples of size 1 (loopback = 1, decimation = 5)."));
}

TEST(RecorderTest, InitLeavesStartedLoopbackAndDecimationAlone)
{
    Recorder sut = MakeStarted(5, 1, true, 2);
    sut.Init(2, 1);
    EXPECT_TRUE(sut.IsStarted());
    Add(sut, 1, 6);  // every second, wrapping around
    EXPECT_EQ(sut.GetIndex(), 0);
    EXPECT_THAT(sut.GetTimestamps(), ElementsAre(6.0, 4.0));
}

TEST(RecorderTest, InitForgetsTheCallsCountedSoFar)
{
    Recorder sut = MakeStarted(5, 1, false, 2);
    Add(sut, 1, 1);
    sut.Init(5, 1);
    Add(sut, 2, 2);
    EXPECT_EQ(sut.GetIndex(), -1) << "it is the first call since Init";
    Add(sut, 3, 3);
    EXPECT_THAT(Recorded(sut), ElementsAre(3.0));
}

TEST(RecorderTest, InitWithASizeBelowOneThrowsAndHasNoBlankBeforeTheSampleSize)
{
    Recorder sut("rec");
    ExpectException(Thrown([&] { sut.Init(0, 5); }),
                    "Recorder rec initialized with invalid capacity 0 and/or sample size5", "Init", "recorder.cpp");
    ExpectException(Thrown([&] { sut.Init(5, 0); }),
                    "Recorder rec initialized with invalid capacity 5 and/or sample size0", "Init", "recorder.cpp");
    ExpectException(Thrown([&] { sut.Init(-1, -20); }),
                    "Recorder rec initialized with invalid capacity -1 and/or sample size-20", "Init", "recorder.cpp");
}

TEST(RecorderTest, FailedInitEmptiesTheBuffersButKeepsStorageAndSizes)
{
    const LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
    Recorder sut = MakeStarted(4, 3);
    Add(sut, 1, 2);
    const std::size_t samples_capacity = sut.GetSamples().capacity();
    const std::size_t timestamps_capacity = sut.GetTimestamps().capacity();
    const std::size_t num_lines = log.Events().size();
    EXPECT_THROW(sut.Init(0, 5), brisk::Exception);
    EXPECT_THAT(sut.GetSamples(), IsEmpty());
    EXPECT_THAT(sut.GetTimestamps(), IsEmpty());
    EXPECT_EQ(sut.GetSamples().capacity(), samples_capacity);
    EXPECT_EQ(sut.GetTimestamps().capacity(), timestamps_capacity);
    EXPECT_EQ(sut.GetNumSamples(), 4);
    EXPECT_EQ(sut.GetSampleSize(), 3);
    EXPECT_EQ(sut.GetIndex(), -1);
    EXPECT_TRUE(sut.IsStarted());
    EXPECT_THAT(log.Events(), SizeIs(num_lines)) << "nothing was initialised";
}

TEST(RecorderTest, FailedInitForgetsTheCallsCountedSoFar)
{
    Recorder sut = MakeStarted(5, 1, false, 2);
    Add(sut, 1, 1);
    EXPECT_THROW(sut.Init(0, 1), brisk::Exception);
    sut.Init(5, 1);
    Add(sut, 2, 3);
    EXPECT_THAT(Recorded(sut), ElementsAre(3.0));
}

TEST(RecorderTest, InitRefusesMoreElementsThanAnIntCanCount)
{
    Recorder sut("rec");
    ExpectException(Thrown([&] { sut.Init(65536, 65537); }),  // would wrap around to 65536
                    "Recorder rec initialized with invalid capacity 65536 and/or sample size65537", "Init",
                    "recorder.cpp");
    EXPECT_THROW(sut.Init(65536, 65536), brisk::Exception);  // 2^32: would wrap around to nothing
    EXPECT_THROW(sut.Init(46341, 46341), brisk::Exception);  // just above 2^31 - 1
    EXPECT_THROW(sut.Init(std::numeric_limits<int>::max(), std::numeric_limits<int>::max()), brisk::Exception);
    ExpectInitialState(sut);
    sut.Start(false, 0);
    sut.AddSample(1.0, SampleOf(1, 10).data());
    EXPECT_EQ(sut.GetIndex(), -1);
}

TEST(RecorderTest, RepeatedInitOfTheSameSizeReusesTheStorage)
{
    const LogCapture log("ravelcore", log4cplus::WARN_LOG_LEVEL);
    Recorder sut("rec");
    sut.Init(100, 20);
    const AllocationGuard guard;
    sut.Init(100, 20);
    EXPECT_EQ(guard.GetCount(), 0);
}

// ---- Start -------------------------------------------------------------------------------------------------------

TEST(RecorderTest, StartSaysHowItRecordsAndPublishesLast)
{
    Recorder sut = MakeStarted(3, 1);
    Add(sut, 1, 2);
    std::vector<std::string> messages;
    bool started_meanwhile = true;
    int index_meanwhile = 99;
    {
        const LogHook hook("ravelcore", log4cplus::DEBUG_LOG_LEVEL, [&](const std::string& message) {
            messages.push_back(message);
            started_meanwhile = sut.IsStarted();
            index_meanwhile = sut.GetIndex();
        });
        sut.Start(false, -1);
    }
    EXPECT_THAT(messages, ElementsAre("Started recorder rec (loopback 0, decimation -1)."));
    EXPECT_FALSE(started_meanwhile);
    EXPECT_EQ(index_meanwhile, -1);
    EXPECT_TRUE(sut.IsStarted());
}

TEST(RecorderTest, StartEndsRecordingBeforeItForgetsWhatWasRecorded)
{
    Recorder sut = MakeStarted(3, 1);
    bool was_reset = false;
    bool started_meanwhile = true;
    {
        const LogHook hook("ravelcore", log4cplus::TRACE_LOG_LEVEL, [&](const std::string& message) {
            if (message.find(" ResetIndex ") != std::string::npos) {
                GetLogger().setLogLevel(log4cplus::DEBUG_LOG_LEVEL);  // IsStarted must not log from here
                was_reset = true;
                started_meanwhile = sut.IsStarted();
            }
        });
        sut.Start(false, 0);
    }
    EXPECT_TRUE(was_reset);
    EXPECT_FALSE(started_meanwhile);
}

TEST(RecorderTest, StartBeginsAgainAtSlotZeroAndKeepsOldDataBehindTheIndex)
{
    Recorder sut = MakeStarted(3, 1);
    Add(sut, 1, 3);
    sut.Start(false, 0);
    EXPECT_EQ(sut.GetIndex(), -1);
    EXPECT_THAT(sut.GetTimestamps(), ElementsAre(1.0, 2.0, 3.0));
    Add(sut, 4, 4);
    EXPECT_EQ(sut.GetIndex(), 0);
    EXPECT_THAT(sut.GetTimestamps(), ElementsAre(4.0, 2.0, 3.0));
    EXPECT_THAT(sut.GetSamples(), ElementsAre(4.0F, 2.0F, 3.0F));
}

TEST(RecorderTest, StartForgetsTheCallsCountedSoFar)
{
    Recorder sut = MakeStarted(3, 1, false, 2);
    Add(sut, 1, 1);
    sut.Start(false, 2);
    Add(sut, 2, 3);
    EXPECT_THAT(Recorded(sut), ElementsAre(3.0));
}

TEST(RecorderTest, NewRecorderIgnoresSamplesEvenAfterStart)
{
    const AssertRecorder asserts;
    Recorder sut("rec");
    sut.Start(true, 0);
    EXPECT_TRUE(sut.IsStarted());
    sut.AddSample(1.0, SampleOf(1, 10).data());
    sut.AddSample(1.0, nullptr);
    EXPECT_EQ(sut.GetIndex(), -1);
    EXPECT_TRUE(sut.IsStarted());
    EXPECT_THAT(asserts.GetFailures(), IsEmpty());
}

TEST(RecorderTest, RecorderWhoseInitFailedIgnoresSamplesEvenAfterStart)
{
    const AssertRecorder asserts;
    Recorder sut = MakeStarted(3, 2);
    Add(sut, 1, 1);
    EXPECT_THROW(sut.Init(3, 0), brisk::Exception);
    sut.Start(true, 0);
    for (int call = 1; call <= 5; ++call) {
        sut.AddSample(call, SampleOf(call, 2).data());
    }
    EXPECT_EQ(sut.GetIndex(), -1);
    EXPECT_THAT(sut.GetSamples(), IsEmpty());
    EXPECT_TRUE(sut.IsStarted());
    EXPECT_THAT(asserts.GetFailures(), IsEmpty());
}

TEST(RecorderTest, RecorderThatIsInitialisedAgainAfterAFailureRecords)
{
    Recorder sut("rec");
    EXPECT_THROW(sut.Init(3, 0), brisk::Exception);
    sut.Init(3, 1);
    sut.Start(false, 0);
    Add(sut, 1, 2);
    EXPECT_THAT(Recorded(sut), ElementsAre(1.0, 2.0));
}

// ---- AddSample ---------------------------------------------------------------------------------------------------

TEST(RecorderTest, IdleRecorderIgnoresSamples)
{
    const AssertRecorder asserts;
    Recorder sut("rec");
    sut.Init(3, 1);
    Add(sut, 1, 1);
    sut.AddSample(1.0, nullptr);
    EXPECT_EQ(sut.GetIndex(), -1);
    EXPECT_THAT(sut.GetTimestamps(), Each(0.0));
    EXPECT_THAT(asserts.GetFailures(), IsEmpty());
}

TEST(RecorderTest, SamplesFillTheSlotsRowByRowWithTheirTimeStamps)
{
    Recorder sut = MakeStarted(3, 2);
    const std::vector<float> first{1.0F, 2.0F};
    const std::vector<float> second{3.0F, 4.0F};
    sut.AddSample(0.5, first.data());
    sut.AddSample(0.75, second.data());
    EXPECT_EQ(sut.GetIndex(), 1);
    EXPECT_THAT(sut.GetTimestamps(), ElementsAre(0.5, 0.75, 0.0));
    EXPECT_THAT(sut.GetSamples(), ElementsAre(1.0F, 2.0F, 3.0F, 4.0F, 0.0F, 0.0F));
}

TEST(RecorderTest, SamplesAreCopiedBitByBit)
{
    const std::vector<std::uint32_t> bits{0x7FC12345U, 0xFF800000U, 0x80000000U, 0x00000001U};
    std::vector<float> sample;
    for (const std::uint32_t one : bits) {
        sample.push_back(std::bit_cast<float>(one));
    }
    Recorder sut = MakeStarted(1, 4);
    sut.AddSample(std::numeric_limits<double>::quiet_NaN(), sample.data());
    std::vector<std::uint32_t> seen;
    for (const float one : sut.GetSamples()) {
        seen.push_back(std::bit_cast<std::uint32_t>(one));
    }
    EXPECT_THAT(seen, ElementsAreArray(bits));
    EXPECT_NE(sut.GetTimestamps()[0], sut.GetTimestamps()[0]) << "a NaN";
}

TEST(RecorderTest, FullRecorderWithoutLoopbackStopsItselfAndDropsTheSample)
{
    const LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
    Recorder sut = MakeStarted(3, 1);
    const std::size_t num_lines = log.Events().size();
    Add(sut, 1, 3);
    EXPECT_TRUE(sut.IsStarted()) << "it stops with the sample that finds no slot";
    Add(sut, 4, 4);
    EXPECT_FALSE(sut.IsStarted());
    EXPECT_EQ(sut.GetIndex(), 2);
    EXPECT_THAT(sut.GetTimestamps(), ElementsAre(1.0, 2.0, 3.0));
    EXPECT_THAT(sut.GetSamples(), ElementsAre(1.0F, 2.0F, 3.0F));
    Add(sut, 5, 5);
    EXPECT_EQ(sut.GetIndex(), 2);
    EXPECT_THAT(log.Events(), SizeIs(num_lines)) << "AddSample says nothing";
}

TEST(RecorderTest, FullRecorderStopsItselfOnACallThatDecimationWouldSkip)
{
    Recorder sut = MakeStarted(1, 1, false, 3);
    Add(sut, 1, 3);
    EXPECT_THAT(Recorded(sut), ElementsAre(3.0));
    EXPECT_TRUE(sut.IsStarted());
    Add(sut, 4, 4);
    EXPECT_FALSE(sut.IsStarted());
}

TEST(RecorderTest, LoopbackWrapsToSlotZero)
{
    Recorder sut = MakeStarted(3, 1, true);
    Add(sut, 1, 4);
    EXPECT_TRUE(sut.IsStarted());
    EXPECT_EQ(sut.GetIndex(), 0);
    EXPECT_THAT(sut.GetTimestamps(), ElementsAre(4.0, 2.0, 3.0));
    Add(sut, 5, 9);
    EXPECT_EQ(sut.GetIndex(), 2);
    EXPECT_THAT(sut.GetSamples(), ElementsAre(7.0F, 8.0F, 9.0F));
}

TEST(RecorderTest, LoopbackWithOneSlotHoldsTheNewestSample)
{
    Recorder sut = MakeStarted(1, 1, true);
    Add(sut, 1, 7);
    EXPECT_THAT(Recorded(sut), ElementsAre(7.0));
}

TEST(RecorderTest, DecimationZeroAndOneRecordEveryCall)
{
    for (const int decimation : {0, 1}) {
        Recorder sut = MakeStarted(5, 1, false, decimation);
        Add(sut, 1, 4);
        EXPECT_THAT(Recorded(sut), ElementsAre(1.0, 2.0, 3.0, 4.0)) << "decimation " << decimation;
    }
}

TEST(RecorderTest, DecimationThreeRecordsEveryThirdCall)
{
    Recorder sut = MakeStarted(5, 1, false, 3);
    Add(sut, 1, 2);
    EXPECT_EQ(sut.GetIndex(), -1);
    Add(sut, 3, 11);
    EXPECT_THAT(Recorded(sut), ElementsAre(3.0, 6.0, 9.0));
}

TEST(RecorderTest, NegativeDecimationRecordsNothing)
{
    for (const int decimation : {-1, -3, std::numeric_limits<int>::min()}) {
        Recorder sut = MakeStarted(5, 1, false, decimation);
        Add(sut, 1, 100);
        EXPECT_EQ(sut.GetIndex(), -1) << "decimation " << decimation;
        EXPECT_TRUE(sut.IsStarted()) << "decimation " << decimation;
    }
}

TEST(RecorderTest, WrapHappensAtOnceAlsoWhenDecimationSkipsTheCall)
{
    Recorder sut = MakeStarted(2, 1, true, 2);
    Add(sut, 1, 4);
    EXPECT_THAT(Recorded(sut), ElementsAre(2.0, 4.0));
    Add(sut, 5, 5);
    EXPECT_EQ(sut.GetIndex(), -1) << "wrapped around, and nothing recorded since";
    Add(sut, 6, 6);
    EXPECT_THAT(Recorded(sut), ElementsAre(6.0));
}

TEST(RecorderTest, NullSampleIsReportedAndChangesNothing)
{
    const AssertRecorder asserts;
    Recorder sut = MakeStarted(3, 1, false, 2);
    Add(sut, 1, 3);
    sut.AddSample(99.0, nullptr);
    ASSERT_THAT(asserts.GetFailures(), SizeIs(1));
    EXPECT_EQ(asserts.GetFailures()[0].file, "ravel/ravelcore/src/recorder.cpp");
    EXPECT_EQ(asserts.GetFailures()[0].function, "AddSample");
    EXPECT_GT(asserts.GetFailures()[0].line, 0);
    EXPECT_TRUE(sut.IsStarted());
    Add(sut, 4, 4);  // the second call since the last that was recorded: the one in between did not count
    EXPECT_THAT(Recorded(sut), ElementsAre(2.0, 4.0));
}

TEST(RecorderTest, NullSampleIsReportedBeforeTheFullRecorderStopsItself)
{
    const AssertRecorder asserts;
    Recorder sut = MakeStarted(1, 1);
    Add(sut, 1, 1);
    sut.AddSample(99.0, nullptr);
    EXPECT_THAT(asserts.GetFailures(), SizeIs(1));
    EXPECT_TRUE(sut.IsStarted());
}

TEST(RecorderTest, AddSampleNeverAllocates)
{
    const LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
    const std::vector<float> sample(600, 1.0F);
    Recorder filling = MakeStarted(100, 600);
    Recorder wrapping = MakeStarted(100, 600, true);
    Recorder decimating = MakeStarted(100, 600, true, 3);
    const AllocationGuard guard;
    for (int call = 0; call < 1000; ++call) {
        filling.AddSample(call, sample.data());
        wrapping.AddSample(call, sample.data());
        decimating.AddSample(call, sample.data());
    }
    EXPECT_EQ(guard.GetCount(), 0);
    EXPECT_FALSE(filling.IsStarted());
    EXPECT_EQ(wrapping.GetIndex(), 99);
    EXPECT_EQ(decimating.GetIndex(), 32);  // 333 recorded, in slots 0 to 99 over and over
}

TEST(RecorderTest, StartStopAndResetIndexReuseTheMemoryOfInit)
{
    const LogCapture log("ravelcore", log4cplus::WARN_LOG_LEVEL);
    const std::vector<float> sample(600, 1.0F);
    Recorder sut = MakeStarted(100, 600);
    const AllocationGuard guard;
    for (int round = 0; round < 10; ++round) {
        sut.Start(round % 2 == 0, round);
        sut.AddSample(round, sample.data());
        sut.ResetIndex();
        sut.AddSample(round, sample.data());
        sut.Stop();
    }
    EXPECT_EQ(guard.GetCount(), 0);
}

// ---- Stop --------------------------------------------------------------------------------------------------------

TEST(RecorderTest, StopSaysWhereItStoppedWithSixDigits)
{
    const LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
    Recorder sut("rec");
    sut.Init(3, 1);
    for (const bool loopback : {false, true}) {
        sut.Start(loopback, 0);
        sut.AddSample(0.5, SampleOf(1, 1).data());
        sut.AddSample(loopback ? 1.7e9 + 0.125 : 1234.5678, SampleOf(2, 1).data());
        sut.Stop();
    }
    EXPECT_THAT(log.Messages(log4cplus::DEBUG_LOG_LEVEL),
                ElementsAre("Initialized recorded rec for 3 samples of size 1 (loopback = 0, decimation = 0).",
                            "Started recorder rec (loopback 0, decimation 0).",
                            "Stopped recorder rec at sample 1 timestamp 1234.57s (loopback 0).",
                            "Started recorder rec (loopback 1, decimation 0).",
                            "Stopped recorder rec at sample 1 timestamp 1.7e+09s (loopback 1)."));
}

TEST(RecorderTest, StopEndsRecordingBeforeItSaysSo)
{
    Recorder sut = MakeStarted(3, 1);
    Add(sut, 1, 1);
    bool started_meanwhile = true;
    {
        const LogHook hook("ravelcore", log4cplus::DEBUG_LOG_LEVEL,
                           [&](const std::string& /*message*/) { started_meanwhile = sut.IsStarted(); });
        sut.Stop();
    }
    EXPECT_FALSE(started_meanwhile);
    Add(sut, 2, 2);
    EXPECT_THAT(Recorded(sut), ElementsAre(1.0));
}

TEST(RecorderTest, StopOfARecorderThatIsNotStartedSaysNothing)
{
    Recorder sut = MakeStarted(1, 1);
    Add(sut, 1, 2);
    ASSERT_FALSE(sut.IsStarted()) << "stopped itself";
    Recorder never("never");
    const LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
    sut.Stop();
    never.Stop();
    EXPECT_THAT(log.Events(), IsEmpty());
    EXPECT_EQ(sut.GetIndex(), 0);
}

TEST(RecorderTest, StopWithNothingRecordedIsHarmlessWhileDebugIsOff)
{
    const LogCapture log("ravelcore", log4cplus::INFO_LOG_LEVEL);
    Recorder sut = MakeStarted(3, 1);
    sut.Stop();
    EXPECT_FALSE(sut.IsStarted());
    EXPECT_THAT(log.Events(), IsEmpty());
}

class RecorderDeathTest : public ::testing::Test
{
protected:
    RecorderDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    LogCapture m_log{"ravelcore", log4cplus::DEBUG_LOG_LEVEL};
};

const char* const OUT_OF_RANGE = "Assertion '__n < this->size\\(\\)' failed";

TEST_F(RecorderDeathTest, StopWithNothingRecordedEndsTheProcessWhileDebugIsOn)
{
    Recorder sut = MakeStarted(3, 1);
    EXPECT_DEATH(sut.Stop(), OUT_OF_RANGE);
}

TEST_F(RecorderDeathTest, StopOfAStartedRecorderWithoutBuffersEndsTheProcessWhileDebugIsOn)
{
    Recorder sut("rec");
    sut.Start(false, 0);
    EXPECT_DEATH(sut.Stop(), OUT_OF_RANGE);
}

TEST_F(RecorderDeathTest, StopBetweenAWrapAndTheNextSampleEndsTheProcessWhileDebugIsOn)
{
    Recorder sut = MakeStarted(2, 1, true, 2);
    Add(sut, 1, 5);
    ASSERT_EQ(sut.GetIndex(), -1);
    EXPECT_DEATH(sut.Stop(), OUT_OF_RANGE);
}

// ---- ResetIndex --------------------------------------------------------------------------------------------------

TEST(RecorderTest, ResetIndexForgetsWhatWasRecordedButKeepsBuffersAndState)
{
    const LogCapture log("ravelcore", log4cplus::DEBUG_LOG_LEVEL);
    Recorder sut = MakeStarted(3, 1, false, 2);
    Add(sut, 1, 3);
    const std::size_t num_lines = log.Events().size();
    sut.ResetIndex();
    EXPECT_EQ(sut.GetIndex(), -1);
    EXPECT_TRUE(sut.IsStarted());
    EXPECT_THAT(sut.GetTimestamps(), ElementsAre(2.0, 0.0, 0.0));
    EXPECT_THAT(log.Events(), SizeIs(num_lines));
    Add(sut, 4, 5);
    EXPECT_THAT(Recorded(sut), ElementsAre(5.0)) << "the second call since";
}

// ---- copies ------------------------------------------------------------------------------------------------------

TEST(RecorderTest, CopyOfARecordingRecorderIsRecordingWithTheSameIndexAndBuffers)
{
    Recorder sut = MakeStarted(4, 2);
    Add(sut, 1, 2);
    const Recorder copy(sut);
    EXPECT_EQ(copy.GetName(), "rec");
    EXPECT_TRUE(copy.IsStarted());
    EXPECT_EQ(copy.GetIndex(), 1);
    EXPECT_EQ(copy.GetNumSamples(), 4);
    EXPECT_EQ(copy.GetSampleSize(), 2);
    EXPECT_EQ(copy.GetSamples(), sut.GetSamples());
    EXPECT_EQ(copy.GetTimestamps(), sut.GetTimestamps());
}

/// Goes on where the original was: loopback, decimation and the calls counted so far are those of the original.
void ExpectToGoOnAsTheOriginal(Recorder& copy)
{
    Add(copy, 6, 6);  // the third call since the last that was recorded
    EXPECT_THAT(Recorded(copy), ElementsAre(3.0, 6.0));
    Add(copy, 7, 9);
    EXPECT_THAT(Recorded(copy), ElementsAre(9.0)) << "wrapped around";
}

TEST(RecorderTest, CopyGoesOnByItselfWhereTheOriginalWas)
{
    Recorder sut = MakeStarted(2, 1, true, 3);
    Add(sut, 1, 5);
    Recorder copy(sut);
    ExpectToGoOnAsTheOriginal(copy);
    EXPECT_THAT(Recorded(sut), ElementsAre(3.0));
    copy.Stop();
    EXPECT_TRUE(sut.IsStarted());
}

TEST(RecorderTest, AssignmentTakesOverEverything)
{
    Recorder sut = MakeStarted(2, 1, true, 3);
    Add(sut, 1, 5);
    Recorder target("another");
    target.Init(7, 9);
    Recorder& result = (target = sut);
    EXPECT_EQ(&result, &target);
    EXPECT_EQ(target.GetName(), "rec");
    EXPECT_TRUE(target.IsStarted());
    EXPECT_EQ(target.GetNumSamples(), 2);
    EXPECT_EQ(target.GetSampleSize(), 1);
    EXPECT_EQ(target.GetSamples(), sut.GetSamples());
    EXPECT_EQ(target.GetTimestamps(), sut.GetTimestamps());
    ExpectToGoOnAsTheOriginal(target);
    EXPECT_THAT(Recorded(sut), ElementsAre(3.0));
}

TEST(RecorderTest, AssignmentFromANewRecorderForgetsEverything)
{
    Recorder sut = MakeStarted(2, 1, true, 3);
    Add(sut, 1, 5);
    sut = Recorder("fresh");
    EXPECT_EQ(sut.GetName(), "fresh");
    ExpectInitialState(sut);
}

TEST(RecorderTest, SelfAssignmentDoesNothing)
{
    Recorder sut = MakeStarted(2, 1, true, 3);
    Add(sut, 1, 5);
    const Recorder& alias = sut;
    const float* const samples = sut.GetSamples().data();
    Recorder& result = (sut = alias);
    EXPECT_EQ(&result, &sut);
    EXPECT_EQ(sut.GetSamples().data(), samples);
    EXPECT_TRUE(sut.IsStarted());
    ExpectToGoOnAsTheOriginal(sut);
}

}  // namespace
}  // namespace lumo::ravelcore
