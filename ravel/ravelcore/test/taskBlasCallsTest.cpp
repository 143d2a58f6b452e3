#include "support/blasRecorder.hpp"
#include "support/edcRig.hpp"

#include <brisk/exception.hpp>
#include <lumo/ravelcore/taskEdc.hpp>
#include <lumo/ravelcore/taskSgemv.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <vector>

// What the tasks ask of the BLAS, and that the time it takes is within the durations that they measure. This program
// has no BLAS: support/blasRecorder.hpp.

namespace lumo::ravelcore {
namespace {

using test::BlasRecorder;
using test::EdcRig;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::FieldsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr std::chrono::milliseconds DELAY{2};

/// A product y = A x of rows x cols: row-major and not transposed in the BLAS's numbers, without gaps, y overwritten.
auto IsProduct(int rows, int cols, const float* a, const float* x, const float* y)
{
    constexpr int ROW_MAJOR = 101;
    constexpr int NOT_TRANSPOSED = 111;
    return FieldsAre(ROW_MAJOR, NOT_TRANSPOSED, rows, cols, 1.0F, a, cols, x, 1, 0.0F, y, 1);
}

// ---- TaskSgemv -----------------------------------------------------------------------------------------------------

TEST(TaskSgemvBlasCallsTest, CycleIsOneProductOfTheTasksVectors)
{
    TaskSgemv sut(3, 4);
    sut.Initialize();
    const BlasRecorder blas;
    sut.Execute(0.0, true);
    EXPECT_THAT(blas.GetSgemvCalls(), ElementsAre(IsProduct(3, 4, sut.GetMatrix().data(), sut.GetInputVector().data(),
                                                            sut.GetOutputVector().data())));
    EXPECT_THAT(blas.GetSaxpyCalls(), IsEmpty());
    EXPECT_THAT(sut.GetOutputVector(), Each(1.0F)) << "what the product leaves there is the output";
    sut.Execute(0.0, false);
    EXPECT_THAT(blas.GetSgemvCalls(), SizeIs(2));
}

TEST(TaskSgemvBlasCallsTest, CycleWithoutElementsAsksNothing)
{
    for (const int rows : {0, 3}) {
        TaskSgemv sut(rows, 3 - rows);
        sut.Initialize();
        const BlasRecorder blas;
        sut.Execute(0.0, true);
        EXPECT_THAT(blas.GetSgemvCalls(), IsEmpty());
    }
}

TEST(TaskSgemvBlasCallsTest, DurationHoldsTheProduct)
{
    TaskSgemv sut(3, 4);
    sut.Initialize();
    const BlasRecorder blas(DELAY);
    sut.Execute(0.0, true);
    EXPECT_GE(sut.GetExecTime(), DELAY);
    EXPECT_EQ(sut.GetExecTime(), sut.GetMaxExecTime());
}

// ---- TaskEdc -------------------------------------------------------------------------------------------------------

class TaskEdcBlasCallsTest : public ::testing::Test
{
protected:
    EdcRig m_rig{4, 5, 3};
    TaskEdc& sut = m_rig.sut;
};

TEST_F(TaskEdcBlasCallsTest, CycleIsThreeProductsInTheirOrder)
{
    const BlasRecorder blas;
    sut.Execute(0.0, true);
    EXPECT_THAT(
        blas.GetSgemvCalls(),
        ElementsAre(IsProduct(3, 5, sut.m_p2edc.data(), sut.m_es_meas, sut.m_modes_in.data()),
                    IsProduct(3, 4, sut.m_pact2modes.data(), sut.m_pact_in.data(), sut.m_modes_rate_limited.data()),
                    IsProduct(4, 3, sut.m_modes2pact.data(), sut.m_modes_out.data(), sut.m_pact_ref.data())));
    EXPECT_THAT(blas.GetSaxpyCalls(), IsEmpty());
    EXPECT_THAT(sut.m_modes_in, Each(1.0F));
    EXPECT_THAT(sut.m_modes_rate_limited, Each(2.0F));
    EXPECT_THAT(sut.m_pact_ref, Each(3.0F));
}

TEST_F(TaskEdcBlasCallsTest, CycleWithoutMeasurementsAsksNothing)
{
    sut.m_es_meas = nullptr;
    const BlasRecorder blas;
    EXPECT_THROW(sut.Execute(0.0, true), brisk::Exception);
    EXPECT_THAT(blas.GetSgemvCalls(), IsEmpty());
}

TEST_F(TaskEdcBlasCallsTest, CombinePactRefIsOneSum)
{
    const BlasRecorder blas;
    std::vector<float> pact(6);
    sut.CombinePactRef(pact);
    EXPECT_THAT(blas.GetSaxpyCalls(), ElementsAre(FieldsAre(4, 1.0F, sut.m_pact_ref.data(), 1, pact.data(), 1)));
    EXPECT_THAT(blas.GetSgemvCalls(), IsEmpty());
}

TEST_F(TaskEdcBlasCallsTest, DurationHoldsAllThreeProducts)
{
    const BlasRecorder blas(DELAY);
    sut.Execute(0.0, true);
    EXPECT_GE(sut.GetExecTime(), 3 * DELAY);
    EXPECT_EQ(sut.GetExecTime(), sut.GetMaxExecTime());
}

TEST_F(TaskEdcBlasCallsTest, CombinePactRefIsOutsideTheDuration)
{
    sut.Execute(0.0, true);
    const std::chrono::nanoseconds duration = sut.GetExecTime();
    const BlasRecorder blas(DELAY);
    std::vector<float> pact(4);
    sut.CombinePactRef(pact);
    EXPECT_EQ(sut.GetExecTime(), duration);
    EXPECT_EQ(sut.GetMaxExecTime(), duration);
}

}  // namespace
}  // namespace lumo::ravelcore
