#include "support/edcRig.hpp"

#include <lumo/ravelcore/taskEdc.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

// TaskEdc in a closed loop: every mode has one sensor and one actuator, and the plant is one line per mode.

namespace lumo::ravelcore {
namespace {

using test::EdcRig;

constexpr std::size_t NUM_MODES = 5;

class TaskEdcClosedLoopTest : public ::testing::Test
{
protected:
    TaskEdcClosedLoopTest()
    {
        m_rig.SetIdentities();
        //                              kp    ki     kd    karw  bp    tt    n      ulow    uhigh  freq
        const std::vector<float> one = {0.1F, 500.0F, 0.0F, 0.0F, 1.0F, 0.1F, 10.0F, -200.0F, 200.0F, 30.0F};
        std::vector<float> all;
        for (std::size_t mode = 0; mode < NUM_MODES; ++mode) {
            all.insert(all.end(), one.begin(), one.end());
        }
        sut.SetPidFilters(all);
    }

    /// One cycle; the actuators then stand where they were told to.
    void Step()
    {
        for (std::size_t mode = 0; mode < NUM_MODES; ++mode) {
            m_rig.es[mode] = m_position[mode] + m_disturbance[mode];  // the whole plant
        }
        sut.Execute(0.002 * m_cycle, m_cycle == 0);
        m_position = sut.m_pact_ref;
        ++m_cycle;
    }

    int m_cycle = 0;
    std::vector<float> m_position = {0.0F, 1.0F, -3.0F, 50.0F, 0.25F};  // µm
    std::vector<float> m_disturbance = std::vector<float>(NUM_MODES, 0.0F);
    EdcRig m_rig{NUM_MODES, NUM_MODES, NUM_MODES};
    TaskEdc& sut = m_rig.sut;
};

TEST_F(TaskEdcClosedLoopTest, UndisturbedLoopHoldsWhereItWasClosed)
{
    const std::vector<float> start = m_position;
    for (int cycle = 0; cycle < 2000; ++cycle) {
        Step();
        for (std::size_t mode = 0; mode < NUM_MODES; ++mode) {
            ASSERT_NEAR(m_position[mode], start[mode], 1e-5F * (1.0F + std::abs(start[mode])))
                << "mode " << mode << " cycle " << cycle;
        }
    }
}

TEST_F(TaskEdcClosedLoopTest, DisturbanceIsRemovedWithoutOvershootAndWithoutTouchingOtherModes)
{
    Step();
    const std::vector<float> reference = sut.m_modes_ref;
    m_disturbance[1] = 2.0F;
    m_disturbance[3] = -10.0F;
    float error_before = 10.0F;
    for (int cycle = 0; cycle < 400; ++cycle) {
        Step();
        ASSERT_GE(sut.m_modes_in[1] - reference[1], -1e-4F) << "overshoot in cycle " << cycle;
        ASSERT_LE(sut.m_modes_in[3] - reference[3], 1e-3F) << "overshoot in cycle " << cycle;
        const float error = std::abs(sut.m_modes_error[3]);
        ASSERT_LE(error, error_before + 1e-3F) << "cycle " << cycle;
        error_before = error;
        ASSERT_NEAR(sut.m_modes_in[2], reference[2], 1e-5F) << "cycle " << cycle;
    }
    EXPECT_NEAR(sut.m_modes_error[1], 0.0F, 1e-4F);
    EXPECT_NEAR(sut.m_modes_error[3], 0.0F, 1e-3F);
    EXPECT_NEAR(m_position[1], reference[1] - 2.0F, 1e-4F) << "the actuator has taken it over";
}

TEST_F(TaskEdcClosedLoopTest, NewReferenceIsReachedAndTheFilterKeepsTheStartGentle)
{
    Step();
    const float start = m_position[0];
    sut.m_modes_ref[0] = start + 1.0F;
    Step();
    EXPECT_LT(m_position[0], start + 0.1F * 0.1F) << "kp times the raw step would be a tenth";
    float highest = start;
    for (int cycle = 0; cycle < 400; ++cycle) {
        Step();
        highest = std::max(highest, m_position[0]);
    }
    EXPECT_NEAR(m_position[0], start + 1.0F, 1e-4F);
    EXPECT_LE(highest, start + 1.0F + 1e-4F) << "overshoot";
}

TEST_F(TaskEdcClosedLoopTest, CommandStaysWithinTheLimitsAndComesBackAtOnceThanksToAntiWindup)
{
    const auto cycles_until_back = [this](float tt) {
        for (std::size_t mode = 0; mode < NUM_MODES; ++mode) {
            sut.SetPidFiltersParam(static_cast<int>(mode), 6, tt);
            PidFilterInit(sut.m_pid_filters[mode]);
        }
        m_position.assign(NUM_MODES, 0.0F);
        m_disturbance.assign(NUM_MODES, 0.0F);
        m_cycle = 0;
        Step();
        m_disturbance[2] = -300.0F;  // more than the stroke of 200
        for (int cycle = 0; cycle < 500; ++cycle) {
            Step();
            EXPECT_LE(m_position[2], 200.0F);
        }
        EXPECT_EQ(m_position[2], 200.0F);
        m_disturbance[2] = 0.0F;
        int cycles = 0;
        while (std::abs(sut.m_modes_error[2]) > 1.0F || cycles == 0) {
            Step();
            EXPECT_GE(m_position[2], -200.0F);
            if (++cycles == 5000) {
                ADD_FAILURE() << "never came back";
                break;
            }
        }
        return cycles;
    };
    const int with = cycles_until_back(0.02F);
    const int without = cycles_until_back(0.0F);
    EXPECT_LT(3 * with, without) << "with: " << with << " cycles, without: " << without;
}

TEST_F(TaskEdcClosedLoopTest, RestartedLoopTakesWhatItMeasuresAsReferenceAndDoesNotMove)
{
    Step();
    sut.m_modes_ref[0] = 5.0F;
    for (int cycle = 0; cycle < 20; ++cycle) {
        Step();
    }
    const std::vector<float> position = m_position;
    ASSERT_GT(std::abs(sut.m_modes_error[0]), 0.1F) << "still on its way";
    m_cycle = 0;
    for (int cycle = 0; cycle < 100; ++cycle) {
        Step();
        for (std::size_t mode = 0; mode < NUM_MODES; ++mode) {
            ASSERT_NEAR(m_position[mode], position[mode], 1e-4F) << "mode " << mode << " cycle " << cycle;
        }
    }
}

TEST_F(TaskEdcClosedLoopTest, ModeThatIsHeldByFdcDoesNotFollowItsSensor)
{
    Step();
    sut.m_fdc_mask[4] = true;
    sut.m_fdc_values[4] = sut.m_modes_ref[4];
    m_disturbance[4] = 3.0F;
    const float position = m_position[4];
    for (int cycle = 0; cycle < 200; ++cycle) {
        Step();
        ASSERT_NEAR(m_position[4], position, 1e-5F) << "cycle " << cycle;
    }
}

}  // namespace
}  // namespace lumo::ravelcore
