#include "sliceTask.hpp"
#include "support/allocationGuard.hpp"
#include "support/quietLog.hpp"

#include <gtest/gtest.h>

namespace lumo::ravelctl {
namespace {

using ravelcore::test::AllocationGuard;

constexpr int NUM_PACT = 9;
constexpr int NUM_ES = 6;
constexpr int NUM_MODES = 4;
constexpr int CAPACITY = 500;

class SliceTaskTest : public testing::Test
{
protected:
    SliceTaskTest()
    {
        test::QuietLog();
        m_sut.Initialize();
        m_in.Start(false, 0);
        m_out.Start(false, 0);
        m_ref.Start(false, 0);
        m_arw.Start(false, 0);
    }

    std::vector<float> m_es_meas = std::vector<float>(NUM_ES, 2.0F);
    ravelcore::Recorder m_in{"modes_in"};
    ravelcore::Recorder m_out{"modes_out"};
    ravelcore::Recorder m_ref{"modes_ref"};
    ravelcore::Recorder m_arw{"modes_arw"};
    ravelcore::TaskEdc m_edc{0, NUM_PACT, NUM_ES, NUM_MODES, m_in, m_out, CAPACITY};
    CycleGate m_gate{1};
    CycleInput m_input;
    SliceTask m_sut{m_edc, {m_ref, m_arw}, m_gate, m_input, [this](ravelcore::TaskEdc& edc) {
                        edc.SetP2EdcMatrix(std::vector<float>(NUM_MODES * NUM_ES, 0.5F));
                        edc.m_es_meas = m_es_meas.data();
                    }};
};

TEST_F(SliceTaskTest, InitializeLoadsTheTaskThatItHasInitialised)
{
    m_sut.Execute(0.0, false);
    EXPECT_EQ(m_edc.m_modes_in, std::vector<float>(NUM_MODES, 6.0F));
}

TEST_F(SliceTaskTest, RecordingsCarryTheSynchronisationTimeWhateverTheWorkerSays)
{
    m_input.sync_time_s = 12.5;
    m_sut.Execute(0.0, true);
    EXPECT_EQ(m_in.GetTimestamps().at(0), 12.5);
    EXPECT_EQ(m_out.GetTimestamps().at(0), 12.5);
    EXPECT_EQ(m_ref.GetTimestamps().at(0), 12.5);
    EXPECT_EQ(m_arw.GetTimestamps().at(0), 12.5);
}

TEST_F(SliceTaskTest, WhatTheChannelsWereGivenIsRecordedAsTheyHadIt)
{
    m_edc.SetPact2ModesMatrix(std::vector<float>(NUM_MODES * NUM_PACT, 0.25F));
    const auto sample = [](const ravelcore::Recorder& recorder, int row) {
        const auto begin = recorder.GetSamples().begin() + row * NUM_MODES;
        return std::vector<float>(begin, begin + NUM_MODES);
    };
    m_edc.m_pact_in.assign(NUM_PACT, 4.0F);
    m_input.first = true;
    m_sut.Execute(0.0, false);
    EXPECT_EQ(sample(m_ref, 0), std::vector<float>(NUM_MODES, 6.0F)) << "those that this cycle took";
    EXPECT_EQ(sample(m_arw, 0), std::vector<float>(NUM_MODES, 9.0F));
    m_input.first = false;
    m_edc.m_modes_ref = {1.0F, 2.0F, 3.0F, 4.0F};
    m_edc.m_pact_in.assign(NUM_PACT, -8.0F);
    m_sut.Execute(0.0, false);
    EXPECT_EQ(sample(m_ref, 1), m_edc.m_modes_ref);
    EXPECT_EQ(sample(m_arw, 1), std::vector<float>(NUM_MODES, -18.0F));
}

TEST_F(SliceTaskTest, TheApplicationDecidesWhichCycleIsTheFirst)
{
    m_sut.Execute(0.0, true);  // the worker's first cycle
    EXPECT_EQ(m_edc.m_modes_ref, std::vector<float>(NUM_MODES, 0.0F));
    m_input.first = true;
    m_sut.Execute(0.0, false);
    EXPECT_EQ(m_edc.m_modes_ref, std::vector<float>(NUM_MODES, 6.0F));
}

TEST_F(SliceTaskTest, AnIdleStartExecutesNothing)
{
    m_input.idle = true;
    m_sut.Execute(0.0, false);
    EXPECT_EQ(m_in.GetIndex(), -1);
    EXPECT_EQ(m_ref.GetIndex(), -1);
    EXPECT_EQ(m_arw.GetIndex(), -1);
    EXPECT_EQ(m_edc.m_modes_in, std::vector<float>(NUM_MODES, 0.0F));
}

TEST_F(SliceTaskTest, ExecuteNeverAllocates)
{
    m_sut.Execute(0.0, true);
    const AllocationGuard guard;
    for (int cycle = 1; cycle < CAPACITY + 10; ++cycle) {  // also when the recorders are full
        m_sut.Execute(0.0, false);
    }
    EXPECT_EQ(guard.GetCount(), 0);
}

}  // namespace
}  // namespace lumo::ravelctl
