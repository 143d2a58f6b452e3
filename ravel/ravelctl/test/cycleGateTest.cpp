#include "cycleGate.hpp"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace lumo::ravelctl {
namespace {

TEST(CycleGateTest, NobodyLeavesACycleBeforeEverybodyHasBegunIt)
{
    constexpr int WORKERS = 3;
    constexpr std::uint32_t CYCLES = 2000;
    CycleGate sut(WORKERS);
    std::vector<std::atomic<std::uint32_t>> begun(WORKERS);
    std::atomic<int> errors{0};
    const auto work = [&](std::size_t self) {
        for (std::uint32_t cycle = 1; cycle <= CYCLES; ++cycle) {
            begun[self].store(cycle);
            sut.Enter();
            sut.AwaitAll(cycle);
            for (const auto& other : begun) {
                errors += other.load() < cycle ? 1 : 0;
            }
        }
    };
    std::vector<std::thread> threads;
    for (std::size_t worker = 0; worker < WORKERS; ++worker) {
        threads.emplace_back(work, worker);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(errors, 0);
}

TEST(CycleGateTest, AWorkerAloneNeverWaits)
{
    CycleGate sut(1);
    for (std::uint32_t cycle = 1; cycle <= 1000; ++cycle) {
        sut.Enter();
        sut.AwaitAll(cycle);
    }
}

TEST(CycleGateTest, OpenFreesWhoWaitsForAWorkerThatNeverComes)
{
    CycleGate sut(2);
    std::atomic<bool> entered{false};
    std::thread waiting([&] {
        sut.Enter();
        entered.store(true);
        entered.notify_one();
        sut.AwaitAll(1);
    });
    entered.wait(false);
    sut.Open();
    waiting.join();  // or the test's time limit
}

TEST(CycleGateTest, AfterOpenNobodyWaitsInLaterCyclesEither)
{
    CycleGate sut(256);
    sut.Open();
    for (std::uint32_t cycle = 1; cycle <= 1000; ++cycle) {
        sut.Enter();
        sut.AwaitAll(cycle);
    }
}

}  // namespace
}  // namespace lumo::ravelctl
