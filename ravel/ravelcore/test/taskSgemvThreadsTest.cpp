#include "support/lockStep.hpp"

#include <lumo/ravelcore/taskSgemv.hpp>

#include <cblas.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <random>
#include <vector>

namespace lumo::ravelcore {
namespace {

constexpr int ROWS = 20;
constexpr int COLS = 4788;

/// One worker's share: a task with data of its own and what its product must be.
struct Share
{
    explicit Share(unsigned seed);

    /// Elements of the output that are further from the product than rounding explains.
    int CountWrong() const;

    TaskSgemv task{ROWS, COLS};
    std::vector<double> product;
    std::vector<double> tolerance;
};

Share::Share(unsigned seed) : product(ROWS, 0.0), tolerance(ROWS, 0.0)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> uniform(-1.0F, 1.0F);
    std::vector<float> matrix(std::size_t{ROWS} * COLS);
    std::vector<float> input(COLS);
    for (float& value : matrix) {
        value = uniform(random);
    }
    for (float& value : input) {
        value = uniform(random);
    }
    for (std::size_t row = 0; row < ROWS; ++row) {
        for (std::size_t col = 0; col < COLS; ++col) {
            const double term = static_cast<double>(matrix[row * COLS + col]) * static_cast<double>(input[col]);
            product[row] += term;
            tolerance[row] += std::abs(term);
        }
        // COLS roundings of single precision, each of a partial sum no larger than the sum of magnitudes, at their
        // usual random-walk size; a wrong or missing block of columns is orders of magnitude larger.
        tolerance[row] *= 8.0 * std::sqrt(static_cast<double>(COLS)) * 0x1p-24;
    }
    task.Initialize();
    task.SetMatrix(matrix);
    task.SetInputVector(input);
}

int Share::CountWrong() const
{
    int wrong = 0;
    const std::vector<float>& output = task.GetOutputVector();
    for (std::size_t row = 0; row < ROWS; ++row) {
        wrong += std::abs(static_cast<double>(output[row]) - product[row]) <= tolerance[row] ? 0 : 1;
    }
    return wrong;
}

TEST(TaskSgemvThreadsTest, ProductsOfTwoWorkersAtOnceAreRight)
{
    // A BLAS built without threads lets two callers take the same work buffer, when they ask for one at the same
    // moment. Many products in each step, so that they ask at every distance in time.
    constexpr int STEPS = 50;
    constexpr int PRODUCTS = 400;
    std::deque<Share> shares;  // a task stays where it was made
    shares.emplace_back(1U);
    shares.emplace_back(2U);
    const std::int64_t wrong = test::RunInStep(2, STEPS, [&](int worker) {
        Share& share = shares[static_cast<std::size_t>(worker)];
        std::int64_t count = 0;
        for (int product = 0; product < PRODUCTS; ++product) {
            share.task.Execute(0.0, false);
            count += share.CountWrong();
        }
        return count;
    });
    EXPECT_EQ(wrong, 0) << "of " << 2 * STEPS * PRODUCTS * ROWS << " elements";
}

TEST(TaskSgemvThreadsTest, BlasUnderneathIsBuiltForCallersInSeveralThreads)
{
    // What the test above sees only when two callers meet, the build says of itself.
    EXPECT_NE(openblas_get_parallel(), OPENBLAS_SEQUENTIAL) << openblas_get_config();
}

}  // namespace
}  // namespace lumo::ravelcore
