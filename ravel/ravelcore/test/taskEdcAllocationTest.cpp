#include "support/allocationGuard.hpp"
#include "support/edcRig.hpp"

#include <lumo/ravelcore/taskEdc.hpp>

#include <gtest/gtest.h>

#include <random>
#include <vector>

// What must not allocate, at the sizes of the instrument.

namespace lumo::ravelcore {
namespace {

using test::AllocationGuard;
using test::EdcRig;
using test::Fractions;

constexpr int NUM_PACT = 2394;
constexpr int NUM_ES = 4788;
constexpr int NUM_MODES = 600;

class TaskEdcAllocationTest : public ::testing::Test
{
protected:
    TaskEdcAllocationTest()
    {
        std::mt19937 random(3);
        m_rig.es = Fractions(NUM_ES, random);
        sut.m_es_meas = m_rig.es.data();
        sut.m_pact_in = Fractions(NUM_PACT, random);
        m_rig.rec_in.Start(true, 0);
        m_rig.rec_out.Start(false, 2);
    }

    EdcRig m_rig{NUM_PACT, NUM_ES, NUM_MODES, 10};
    TaskEdc& sut = m_rig.sut;
};

TEST_F(TaskEdcAllocationTest, ExecuteNeverAllocates)
{
    sut.m_pdc_mask.assign(NUM_MODES, true);
    sut.m_fdc_mask[16] = true;
    const AllocationGuard guard;
    for (int cycle = 0; cycle < 40; ++cycle) {
        sut.m_feed_forward_enabled = cycle % 2 == 0;
        sut.Execute(0.002 * cycle, cycle == 0);
        ASSERT_EQ(guard.GetCount(), 0) << "cycle " << cycle;
    }
    EXPECT_FALSE(m_rig.rec_out.IsStarted()) << "also when a recorder gets full";
}

TEST_F(TaskEdcAllocationTest, CombinePactRefNeverAllocates)
{
    std::vector<float> command(NUM_PACT);
    sut.Execute(0.0, true);
    const AllocationGuard guard;
    sut.CombinePactRef(command);
    EXPECT_EQ(guard.GetCount(), 0);
}

TEST_F(TaskEdcAllocationTest, SettersNeverAllocate)
{
    const std::vector<float> p2edc(sut.m_p2edc.size(), 1.0F);
    const std::vector<float> pact_modes(sut.m_pact2modes.size(), 1.0F);
    const std::vector<float> params(10 * NUM_MODES, 1.0F);
    const AllocationGuard guard;
    sut.SetP2EdcMatrix(p2edc);
    sut.SetPact2ModesMatrix(pact_modes);
    sut.SetModes2PactMatrix(pact_modes);
    sut.SetP2EdcValue(5, 1.0F);
    sut.SetPact2ModesValue(5, 1.0F);
    sut.SetModes2PactValue(5, 1.0F);
    sut.SetPidFilters(params);
    sut.SetPidFiltersParam(5, 5, 1.0F);
    EXPECT_EQ(guard.GetCount(), 0);
}

}  // namespace
}  // namespace lumo::ravelcore
