#include <lumo/mirrorsim/sensorMatrix.hpp>
#include <lumo/mirrorsim/smoothShapes.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace lumo::mirrorsim {
namespace {

TEST(SmoothShapesTest, ShapesAreTheRadialOrders2To6WithoutFocus)
{
    const SmoothShapes sut = ComputeSmoothShapes(Geometry());
    ASSERT_EQ(sut.heights.cols(), NUM_SHAPES);
    ASSERT_EQ(sut.heights.rows(), NUM_PACT);
    const int expected[] = {2, 4, 5, 6, 7};  // of orders 2 to 6; order n has n + 1, but focus is missing
    for (int n = 2; n <= 6; ++n) {
        EXPECT_EQ(std::count(sut.orders.begin(), sut.orders.end(), n), expected[n - 2]) << "order " << n;
    }
}

TEST(SmoothShapesTest, EachShapeHasAnRmsOfOneAndNoUnobservablePart)
{
    const Geometry geometry;
    const SmoothShapes sut = ComputeSmoothShapes(geometry);
    for (const auto& shape : sut.heights.colwise()) {
        EXPECT_NEAR(shape.norm() / std::sqrt(static_cast<double>(NUM_PACT)), 1.0, 1e-12);
    }
    EXPECT_LT((UnobservableDirections(geometry).transpose() * sut.heights).cwiseAbs().maxCoeff(), 1e-11);
}

TEST(SmoothShapesTest, ShapesAreIndependentOfEachOther)
{
    const SmoothShapes sut = ComputeSmoothShapes(Geometry());
    const Eigen::MatrixXd gram = sut.heights.transpose() * sut.heights / NUM_PACT;
    EXPECT_GT(Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd>(gram).eigenvalues().minCoeff(), 1e-3);
}

TEST(SmoothShapesTest, FocusAtTheActuatorPointsIsUnobservableAltogether)
{
    const Geometry geometry;
    Eigen::VectorXd focus(NUM_PACT);
    for (int i = 0; i < NUM_PACT; ++i) {
        const Point& at = geometry.GetActuators().at(static_cast<std::size_t>(i));
        focus[i] = at.x_m * at.x_m + at.y_m * at.y_m;
    }
    const double norm = focus.norm();
    RemoveUnobservable(UnobservableDirections(geometry), focus);
    EXPECT_LT(focus.norm() / norm, 1e-13);
}

TEST(SmoothShapesTest, AmplitudesFallWithTheSquareOfTheOrderAndTheirSquaresAddUpToOne)
{
    const SmoothShapes sut = ComputeSmoothShapes(Geometry());
    EXPECT_NEAR(std::inner_product(sut.weights.begin(), sut.weights.end(), sut.weights.begin(), 0.0), 1.0, 1e-14);
    for (std::size_t i = 0; i < sut.weights.size(); ++i) {
        EXPECT_NEAR(sut.weights[i] / sut.weights[0], 4.0 / (sut.orders[i] * sut.orders[i]), 1e-14);
    }
}

}  // namespace
}  // namespace lumo::mirrorsim
