#include <lumo/mirrorsim/sensorMatrix.hpp>

// LAPACK's Fortran interface, as OpenBLAS exports it.
extern "C" void dpotrf_(const char* uplo, const int* n, double* a, const int* lda, int* info);

#include <gtest/gtest.h>

#include <cmath>

namespace lumo::mirrorsim {
namespace {

bool IsPositiveDefinite(Eigen::MatrixXd matrix)
{
    const int size = static_cast<int>(matrix.rows());
    int info = 0;
    dpotrf_("L", &size, matrix.data(), &size, &info);
    return info == 0;
}

TEST(SensorMatrixTest, ReadingIsTheOwnersHeightMinusTheNeighboursAtTheSensor)
{
    const Geometry geometry;
    const auto sut = SensorMatrix(geometry);
    // A plane of its own for each segment, given by its height and slopes at the centre.
    const auto height = [&](int segment, double x, double y) {
        const Segment& at = geometry.GetSegments().at(static_cast<std::size_t>(segment));
        return std::sin(segment) + std::cos(3.0 * segment) * (x - at.x_m) + std::sin(5.0 * segment) * (y - at.y_m);
    };
    Eigen::VectorXd actuators(NUM_PACT);
    for (int i = 0; i < NUM_PACT; ++i) {
        const Point& at = geometry.GetActuators().at(static_cast<std::size_t>(i));
        actuators[i] = height(i / 3, at.x_m, at.y_m);
    }
    const Eigen::VectorXd readings = sut * actuators;
    for (const Sensor& sensor : geometry.GetSensors()) {
        const Point& at = sensor.position;
        const double expected = height(sensor.owner, at.x_m, at.y_m) - height(sensor.neighbour, at.x_m, at.y_m);
        ASSERT_NEAR(readings[sensor.slot], expected, 1e-12);
    }
}

TEST(SensorMatrixTest, RowsOfEmptySlotsHoldNothingAndAllOthersSixElements)
{
    const Geometry geometry;
    const auto sut = SensorMatrix(geometry);
    ASSERT_EQ(sut.rows(), NUM_ES);
    ASSERT_EQ(sut.cols(), NUM_PACT);
    for (int slot = 0; slot < NUM_ES; ++slot) {
        ASSERT_EQ(sut.row(slot).nonZeros(), geometry.HasSensor(slot) ? 6 : 0);
    }
}

TEST(SensorMatrixTest, SensorsSeeNothingOfTheUnobservableDirections)
{
    const Geometry geometry;
    const Eigen::MatrixXd sut = UnobservableDirections(geometry);
    ASSERT_EQ(sut.cols(), 4);
    EXPECT_LT((SensorMatrix(geometry) * sut).cwiseAbs().maxCoeff(), 1e-14);
    EXPECT_LT((sut.transpose() * sut - Eigen::MatrixXd::Identity(4, 4)).cwiseAbs().maxCoeff(), 1e-14);
}

TEST(SensorMatrixTest, SensorMatrixHasExactlyFourUnobservableDirections)
{
    const Geometry geometry;
    const auto sensors = SensorMatrix(geometry);
    const Eigen::MatrixXd directions = UnobservableDirections(geometry);
    // The four are unobservable (test above). With them filled up, A^T A - 1e-6 is positive definite: a fifth
    // direction, whose eigenvalue is 0, would make it indefinite. The least observable one has 3.7e-6.
    const Eigen::SparseMatrix<double> normal = sensors.transpose() * sensors;
    Eigen::MatrixXd filled = Eigen::MatrixXd(normal) + directions * directions.transpose();
    filled.diagonal().array() -= 1e-6;
    EXPECT_TRUE(IsPositiveDefinite(filled));
    // The same proof notices one direction less: without the fourth it fails.
    filled -= directions.col(3) * directions.col(3).transpose();
    EXPECT_FALSE(IsPositiveDefinite(filled));
}

TEST(SensorMatrixTest, RemoveUnobservableTakesThatPartOutAndLeavesTheReadings)
{
    const Geometry geometry;
    const Eigen::MatrixXd directions = UnobservableDirections(geometry);
    Eigen::MatrixXd sut(NUM_PACT, 2);
    for (int i = 0; i < NUM_PACT; ++i) {
        sut.row(i) << 1.0 + std::sin(i), std::cos(2.0 * i);
    }
    const Eigen::MatrixXd readings = SensorMatrix(geometry) * sut;
    RemoveUnobservable(directions, sut);
    EXPECT_LT((directions.transpose() * sut).cwiseAbs().maxCoeff(), 1e-12);
    EXPECT_LT((SensorMatrix(geometry) * sut - readings).cwiseAbs().maxCoeff(), 1e-12);
}

}  // namespace
}  // namespace lumo::mirrorsim
