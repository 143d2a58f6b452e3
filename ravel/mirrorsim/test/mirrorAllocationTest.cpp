#include "support/allocationGuard.hpp"

#include <lumo/mirrorsim/mirror.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace lumo::mirrorsim {
namespace {

using ravelcore::test::AllocationGuard;

TEST(MirrorAllocationTest, CountingSeesAllocationsOfOperatorNewAndOfEigen)
{
    const AllocationGuard from_new;
    const auto values = std::make_unique<std::vector<double>>(100);
    EXPECT_GE(from_new.GetCount(), 2);
    const AllocationGuard from_eigen;
    const Eigen::VectorXd heights = Eigen::VectorXd::Zero(100);
    EXPECT_GE(from_eigen.GetCount(), 1);
    EXPECT_EQ(heights.sum() + values->at(0), 0.0);
}

TEST(MirrorAllocationTest, StepAndRecordsNeverAllocate)
{
    const std::vector<float> shape(NUM_PACT, 0.02F);
    MirrorConfig config;
    config.tones = {{0, 10.0, 1.0}};
    Mirror sut(Geometry{}, config, shape, 1);
    const std::vector<float> command(NUM_PACT, 1.0F);
    const auto es_record = std::make_unique<EsRecord>();
    const auto pact_record = std::make_unique<PactRecord>();
    const AllocationGuard guard;
    for (int cycle = 0; cycle < 1000; ++cycle) {
        sut.FillEsMeas(0.002 * cycle, cycle, *es_record);
        sut.FillPactMeas(0.002 * cycle, cycle, *pact_record);
        sut.Step(command);
    }
    EXPECT_EQ(guard.GetCount(), 0);
}

}  // namespace
}  // namespace lumo::mirrorsim
