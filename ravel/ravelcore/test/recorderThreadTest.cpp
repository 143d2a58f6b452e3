#include "support/logCapture.hpp"
#include "support/savedSeries.hpp"
#include "support/temporaryDirectory.hpp"

#include <brisk/exception.hpp>
#include <lumo/ravelcore/recorder.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#if defined(__SANITIZE_THREAD__)
/// The one race that is accepted: Save copies the buffers of a recording recorder while AddSample writes to them, and
/// the newest row may be half written. Named here, for this program only; reports about anything else count.
extern "C" __attribute__((visibility("default"))) const char*
__tsan_default_suppressions()  // NOLINT(bugprone-reserved-identifier)
{
    return "race:^lumo::ravelcore::Recorder::Save\n";
}
#endif

namespace lumo::ravelcore {
namespace {

using test::LogCapture;
using test::ReadSavedSeries;
using test::SavedSeries;
using test::TemporaryDirectory;

constexpr int SAMPLE_SIZE = 64;
constexpr int CAPACITY = 50;

/// Calls AddSample without pause in a thread of its own; the time stamp and every element are the number of the call.
class Producer
{
public:
    explicit Producer(Recorder& recorder) : m_recorder(recorder), m_thread([this] { Run(); }) {}

    ~Producer() { Join(); }

    Producer(const Producer&) = delete;
    Producer& operator=(const Producer&) = delete;

    /// Returns when at least one call has been made from beginning to end since now.
    void AwaitCall() const
    {
        // The call that is going on may have begun before now, the next one has not.
        const std::uint32_t seen = m_num_calls.load(std::memory_order_relaxed);
        while (m_num_calls.load(std::memory_order_relaxed) - seen < 2) {  // relaxed: it must not hide a race
            std::this_thread::yield();
        }
    }

    void Join()
    {
        m_stop.store(true, std::memory_order_relaxed);
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }

private:
    void Run()
    {
        std::vector<float> sample(SAMPLE_SIZE);
        // Below 2^24, so that every number is a float of its own.
        for (std::uint32_t call = 1; !m_stop.load(std::memory_order_relaxed); call = call % (1U << 23U) + 1) {
            sample.assign(SAMPLE_SIZE, static_cast<float>(call));
            m_recorder.AddSample(call, sample.data());
            m_num_calls.fetch_add(1, std::memory_order_relaxed);
        }
    }

    Recorder& m_recorder;
    std::atomic<bool> m_stop{false};
    std::atomic<std::uint32_t> m_num_calls{0};
    std::thread m_thread;  // last: it uses all of the above
};

/// Expects row k to be whole: all elements are the time stamp.
void ExpectWholeRow(const std::vector<float>& samples, const std::vector<double>& timestamps, std::size_t k)
{
    for (std::size_t i = 0; i < SAMPLE_SIZE; ++i) {
        ASSERT_EQ(samples[k * SAMPLE_SIZE + i], timestamps[k]) << "torn sample in slot " << k << ", element " << i;
    }
}

/// Expects the recorded slots to be whole and in the order of the calls.
void ExpectOrderedRecording(const Recorder& sut)
{
    const auto rows = static_cast<std::size_t>(sut.GetIndex() + 1);
    for (std::size_t k = 0; k < rows; ++k) {
        ExpectWholeRow(sut.GetSamples(), sut.GetTimestamps(), k);
        if (k > 0) {
            ASSERT_GT(sut.GetTimestamps()[k], sut.GetTimestamps()[k - 1]) << "slot " << k;
        }
    }
}

class RecorderThreadTest : public ::testing::Test
{
protected:
    RecorderThreadTest() { m_sut.Init(CAPACITY, SAMPLE_SIZE); }

    // DEBUG is off: with it on, Stop reads a time stamp that the producer may be writing, for its message.
    LogCapture m_log{"ravelcore", log4cplus::INFO_LOG_LEVEL};
    Recorder m_sut{"rec"};
};

TEST_F(RecorderThreadTest, RestartsWhileTheProducerRunsNeverTearASample)
{
    int num_recorded = 0;
    for (int round = 0; round < 10; ++round) {
        Producer producer(m_sut);
        for (int i = 0; i < 40; ++i) {
            m_sut.Start(i % 2 == 0, i % 3);
            if (i % 7 != 0) {
                producer.AwaitCall();
                m_sut.Stop();
            }
        }
        producer.Join();
        ASSERT_LT(m_sut.GetIndex(), CAPACITY);
        ExpectOrderedRecording(m_sut);
        num_recorded += m_sut.GetIndex() + 1;
    }
    EXPECT_GT(num_recorded, 0);
}

TEST_F(RecorderThreadTest, WhoSeesThatTheFullRecorderHasStoppedItselfSeesAllItsSamples)
{
    for (int round = 0; round < 50; ++round) {
        Producer producer(m_sut);
        m_sut.Start(false, 0);
        while (m_sut.IsStarted()) {
            std::this_thread::yield();
        }
        ASSERT_EQ(m_sut.GetIndex(), CAPACITY - 1);
        ExpectOrderedRecording(m_sut);  // while the producer still calls AddSample
    }
}

TEST_F(RecorderThreadTest, CopyOfARecordingRecorderHasAProducerOfItsOwn)
{
    m_sut.Start(true, 0);
    std::vector<float> sample(SAMPLE_SIZE, 1.0F);
    m_sut.AddSample(1.0, sample.data());
    Recorder copy(m_sut);
    {
        const Producer producer(m_sut);
        const Producer another(copy);
        producer.AwaitCall();
        another.AwaitCall();
        m_sut.Stop();
        copy.Stop();
    }
    EXPECT_GE(m_sut.GetIndex(), 0);
    EXPECT_GE(copy.GetIndex(), 0);
    for (std::size_t k = 0; k <= static_cast<std::size_t>(copy.GetIndex()); ++k) {
        ExpectWholeRow(copy.GetSamples(), copy.GetTimestamps(), k);
    }
}

TEST_F(RecorderThreadTest, FailedInitThenStartIgnoresTheProducer)
{
    EXPECT_THROW(m_sut.Init(0, SAMPLE_SIZE), brisk::Exception);
    m_sut.Start(true, 0);
    Producer producer(m_sut);
    producer.AwaitCall();
    m_sut.Stop();
    m_sut.Start(false, 3);
    producer.AwaitCall();
    producer.Join();
    EXPECT_EQ(m_sut.GetIndex(), -1);
    EXPECT_TRUE(m_sut.IsStarted());
    EXPECT_TRUE(m_sut.GetSamples().empty());
}

TEST_F(RecorderThreadTest, EveryRowButTheNewestIsWholeInAFileSavedWhileRecording)
{
    const TemporaryDirectory directory;
    const std::string file = directory / "recording.fits";
    int num_saved = 0;
    for (int round = 0; round < 50; ++round) {
        Producer producer(m_sut);
        m_sut.Start(false, 0);
        while (m_sut.GetIndex() < 0) {
            std::this_thread::yield();
        }
        m_sut.Save(file);
        const SavedSeries saved = ReadSavedSeries(file);
        ASSERT_LE(saved.rows, CAPACITY);
        for (int k = 0; k + 1 < saved.rows; ++k) {
            ExpectWholeRow(saved.values, saved.timestamps, static_cast<std::size_t>(k));
        }
        num_saved += saved.rows;
    }
    EXPECT_GE(num_saved, 50);
}

}  // namespace
}  // namespace lumo::ravelcore
