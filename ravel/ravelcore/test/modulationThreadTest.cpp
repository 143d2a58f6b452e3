#include "support/logCapture.hpp"

#include <lumo/ravelcore/modulation.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace lumo::ravelcore {
namespace {

using test::LogCapture;

constexpr int SAMPLE_SIZE = 64;
constexpr int NUM_SAMPLES = 20;
constexpr float IDLE = -1.0F;
constexpr float GENERATION = 1000.0F;  // between the first elements of one set of samples and those of the next

/// Samples of which every element is `base` plus the number of the sample, from 1.
std::vector<float> MakeSamples(float base)
{
    std::vector<float> samples;
    for (int number = 1; number <= NUM_SAMPLES; ++number) {
        samples.insert(samples.end(), SAMPLE_SIZE, base + static_cast<float>(number));
    }
    return samples;
}

/// What one call of GetNextSample can have given.
enum class Kind
{
    Idle,
    Playing,
    Finished,
    Torn
};

/// `base` becomes that of the samples that are seen, if any are.
Kind KindOf(const float* sample, int number, float& base)
{
    const bool whole = std::all_of(sample, sample + SAMPLE_SIZE, [&](float value) { return value == sample[0]; });
    if (whole && sample[0] == IDLE) {
        return number == 0 ? Kind::Idle : Kind::Torn;
    }
    if (whole && number >= 1 && number <= NUM_SAMPLES) {
        base = sample[0] - static_cast<float>(number);
        return Kind::Playing;
    }
    // The end without loopback: from float element NUM_SAMPLES - 1 on, which is in the first sample.
    const float* const second = sample + (SAMPLE_SIZE - (NUM_SAMPLES - 1));
    if (number == NUM_SAMPLES && std::all_of(sample, second, [&](float value) { return value == sample[0]; }) &&
        std::all_of(second, sample + SAMPLE_SIZE, [&](float value) { return value == sample[0] + 1.0F; })) {
        base = sample[0] - 1.0F;
        return Kind::Finished;
    }
    return Kind::Torn;
}

/// Calls GetNextSample without pause in a thread of its own and looks at every sample.
class Player
{
public:
    explicit Player(Modulation& modulation) : m_modulation(modulation), m_thread([this] { Run(); }) {}

    ~Player() { Join(); }

    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    /// Returns when at least one call has been made, and its sample looked at, from beginning to end since now.
    /// It orders nothing, so that it hides no race.
    void AwaitCall() const { AwaitCall(std::memory_order_relaxed); }

    /// The same, and the player has done with the samples that it had got before: what a cycle's handshake gives.
    void AwaitCycle() const { AwaitCall(std::memory_order_acquire); }

    void Join()
    {
        m_stop.store(true, std::memory_order_relaxed);
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }

    // After Join.
    const std::string& GetFlaw() const { return m_flaw; }
    std::int64_t GetNumPlayed() const { return m_num_played; }

private:
    void AwaitCall(std::memory_order order) const
    {
        // The call that is going on may have begun before now, the next one has not.
        const std::uint32_t seen = m_num_calls.load(order);
        while (m_num_calls.load(order) - seen < 2) {
            std::this_thread::yield();
        }
    }

    void Run()
    {
        while (!m_stop.load(std::memory_order_relaxed)) {
            int number = 0;
            const float* const sample = m_modulation.GetNextSample(number);
            Look(sample, number);
            m_num_calls.fetch_add(1, std::memory_order_release);  // pairs with the acquire load of AwaitCycle
        }
    }

    void Look(const float* sample, int number)
    {
        const Kind kind = KindOf(sample, number, m_base);
        if (kind == Kind::Torn) {
            m_flaw = "torn sample number " + std::to_string(number) + " begins with " + std::to_string(sample[0]);
        }
        if (kind == Kind::Torn || kind == Kind::Idle) {
            return;
        }
        ++m_num_played;
        // The same (decimation), the next, or, after a start or a loopback, one of the first two: a start in the middle
        // of a call may lose the first one.
        if (number != m_last_number && number != m_last_number + 1 && number > 2) {
            m_flaw = "number " + std::to_string(number) + " after " + std::to_string(m_last_number);
        }
        if (m_base < m_last_base || std::fmod(m_base, GENERATION) != 0.0F) {
            m_flaw = "samples of " + std::to_string(m_base) + " after those of " + std::to_string(m_last_base);
        }
        m_last_number = number;
        m_last_base = m_base;
    }

    Modulation& m_modulation;
    std::atomic<bool> m_stop{false};
    std::atomic<std::uint32_t> m_num_calls{0};
    float m_base = 0.0F;
    float m_last_base = 0.0F;
    int m_last_number = 0;
    std::int64_t m_num_played = 0;
    std::string m_flaw;
    std::thread m_thread;  // last: it uses all of the above
};

class ModulationThreadTest : public ::testing::Test
{
protected:
    LogCapture m_log{"ravelcore", log4cplus::DEBUG_LOG_LEVEL};
    Modulation m_sut{"tone", SAMPLE_SIZE, IDLE};
};

TEST_F(ModulationThreadTest, StartAndStopWhileThePlayerRunsNeverTearASampleOrSkipOne)
{
    m_sut.Set(MakeSamples(0.0F));
    Player player(m_sut);
    for (int i = 0; i < 200; ++i) {
        m_sut.Start(i % 2 == 0, i % 5 - 1);
        if (i % 7 != 0) {
            player.AwaitCall();
            m_sut.Stop();
        }
    }
    player.Join();
    EXPECT_EQ(player.GetFlaw(), "");
    EXPECT_GT(player.GetNumPlayed(), 0);
}

TEST_F(ModulationThreadTest, StartThatLowersTheDecimationNeverLeavesThePlayerOnOneSample)
{
    // A start in the middle of a call that counts for the old decimation may leave a count above the new one.
    constexpr int NUM_STARTS = 4000;
    m_log.SetLevel(log4cplus::INFO_LOG_LEVEL);  // brief starts
    m_sut.Set(MakeSamples(0.0F));
    std::atomic<bool> stop{false};
    std::atomic<std::uint32_t> num_changes{0};
    std::atomic<int> num_repeats{0};
    {
        const std::jthread player([&] {
            int last = 0;
            while (!stop.load(std::memory_order_relaxed)) {
                int number = 0;
                m_sut.GetNextSample(number);
                const bool repeats = number != 0 && number == last;  // 0: nothing plays in the middle of a start
                num_repeats.store(repeats ? num_repeats.load(std::memory_order_relaxed) + 1 : 0,
                                  std::memory_order_relaxed);
                num_changes.fetch_add(number != last ? 1 : 0, std::memory_order_relaxed);
                last = number;
            }
        });
        for (int i = 0; i < NUM_STARTS && !HasFailure(); ++i) {
            m_sut.Start(true, 3);
            m_sut.Start(true, 1);
            const std::uint32_t before = num_changes.load(std::memory_order_relaxed);
            while (num_changes.load(std::memory_order_relaxed) - before < 4 && !HasFailure()) {
                EXPECT_LT(num_repeats.load(std::memory_order_relaxed), 1000) << "stuck after start " << i;
                std::this_thread::yield();
            }
        }
        stop.store(true, std::memory_order_relaxed);
    }
}

TEST_F(ModulationThreadTest, NewSamplesWhileStoppedAreNeverMixedWithOldOnes)
{
    Player player(m_sut);
    for (int generation = 1; generation <= 100; ++generation) {
        m_sut.Set(MakeSamples(GENERATION * static_cast<float>(generation)));
        m_sut.Start(generation % 2 == 0, 0);
        player.AwaitCall();
        m_sut.Stop();
        player.AwaitCycle();  // as the header asks: the last call that played is over
    }
    player.Join();
    EXPECT_EQ(player.GetFlaw(), "");
    EXPECT_GT(player.GetNumPlayed(), 0);
}

TEST_F(ModulationThreadTest, WhoAsksFromAnotherThreadSeesEveryStartAndStop)
{
    m_sut.Set(MakeSamples(0.0F));
    std::atomic<bool> stop{false};
    std::atomic<bool> seen{false};
    {
        const std::jthread asker([&] {
            while (!stop.load(std::memory_order_relaxed)) {
                seen.store(m_sut.IsPlaying(), std::memory_order_relaxed);
                std::this_thread::yield();
            }
        });
        const auto await = [&](bool playing) {
            while (seen.load(std::memory_order_relaxed) != playing) {
                std::this_thread::yield();
            }
        };
        for (int i = 0; i < 200; ++i) {
            m_sut.Start(true, 0);
            await(true);
            m_sut.Stop();
            await(false);
        }
        stop.store(true, std::memory_order_relaxed);
    }
    EXPECT_FALSE(m_sut.IsPlaying());
}

}  // namespace
}  // namespace lumo::ravelcore
