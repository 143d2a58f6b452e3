#include "initialPositions.hpp"

#include <lumo/mirrorsim/sensorMatrix.hpp>
#include <lumo/mirrorsim/smoothShapes.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

namespace lumo::mirrorsim {
namespace {

Eigen::VectorXd Positions(const Geometry& geometry, std::uint64_t seed, double rms_um)
{
    MirrorConfig config;
    config.seed = seed;
    config.initial_rms_um = rms_um;
    const std::vector<double> positions = InitialPositions(geometry, config);
    return Eigen::Map<const Eigen::VectorXd>(positions.data(), static_cast<Eigen::Index>(positions.size()));
}

double MeanSquare(const Eigen::VectorXd& heights)
{
    return heights.squaredNorm() / static_cast<double>(heights.size());
}

double Rms(const Eigen::VectorXd& heights)
{
    return std::sqrt(MeanSquare(heights));
}

/// What a start is made of, as directions: those of the smooth shapes, and those of bumps two segments wide about each
/// segment's centre. Both with the unobservable ones, because the start has no part of them.
class Directions
{
public:
    explicit Directions(const Geometry& geometry)
        : m_smooth(SmoothOf(geometry)), m_bumps(BumpsOf(geometry)), m_smooth_qr(m_smooth), m_all_qr(Joined())
    {
    }

    Eigen::Index CountAll() const { return m_smooth.cols() + m_bumps.cols(); }

    /// What no smooth shape describes of the heights.
    Eigen::VectorXd BesideSmooth(const Eigen::VectorXd& heights) const { return Beside(m_smooth_qr, heights); }

    /// What neither smooth shapes nor bumps describe of them.
    Eigen::VectorXd BesideAll(const Eigen::VectorXd& heights) const { return Beside(m_all_qr, heights); }

    /// The share of the mean square of random bumps that no smooth shape describes.
    double ShareOfBumpsBesideSmooth() const
    {
        double beside = 0.0;
        for (const auto bump : m_bumps.colwise()) {
            beside += BesideSmooth(bump).squaredNorm();
        }
        return beside / m_bumps.squaredNorm();
    }

private:
    using Qr = Eigen::HouseholderQR<Eigen::MatrixXd>;

    static Eigen::MatrixXd SmoothOf(const Geometry& geometry)
    {
        Eigen::MatrixXd smooth(NUM_PACT, NUM_UNOBSERVABLE + NUM_SHAPES);
        smooth << UnobservableDirections(geometry), ComputeSmoothShapes(geometry).heights;
        return smooth;
    }

    static Eigen::MatrixXd BumpsOf(const Geometry& geometry)
    {
        Eigen::MatrixXd bumps(NUM_PACT, NUM_SEGMENTS);
        for (Eigen::Index segment = 0; segment < NUM_SEGMENTS; ++segment) {
            const Segment& centre = geometry.GetSegments().at(static_cast<std::size_t>(segment));
            for (Eigen::Index actuator = 0; actuator < NUM_PACT; ++actuator) {
                const Point& at = geometry.GetActuators().at(static_cast<std::size_t>(actuator));
                const double distance = std::hypot(at.x_m - centre.x_m, at.y_m - centre.y_m) / (2.0 * PITCH_M);
                bumps(actuator, segment) = std::exp(-0.5 * distance * distance);
            }
        }
        return bumps;
    }

    Eigen::MatrixXd Joined() const
    {
        Eigen::MatrixXd all(NUM_PACT, CountAll());
        all << m_smooth, m_bumps;
        return all;
    }

    static Eigen::VectorXd Beside(const Qr& qr, const Eigen::VectorXd& heights)
    {
        Eigen::VectorXd turned = qr.householderQ().transpose() * heights;
        turned.head(qr.cols()).setZero();
        return qr.householderQ() * turned;
    }

    Eigen::MatrixXd m_smooth;
    Eigen::MatrixXd m_bumps;
    Qr m_smooth_qr;
    Qr m_all_qr;
};

TEST(InitialPositionsTest, TheyHaveTheConfiguredRmsAndNothingUnobservable)
{
    const Geometry geometry;
    const Eigen::MatrixXd directions = UnobservableDirections(geometry);
    for (const std::uint64_t seed : {1U, 2U}) {
        const Eigen::VectorXd sut = Positions(geometry, seed, 3.0);
        ASSERT_EQ(sut.size(), NUM_PACT);
        EXPECT_NEAR(Rms(sut), 3.0, 1e-6);
        EXPECT_LT((directions.transpose() * sut).cwiseAbs().maxCoeff(), 1e-5) << "float rounding is all there is";
    }
}

TEST(InitialPositionsTest, EachIsAFloatExactly)
{
    const Eigen::VectorXd sut = Positions(Geometry(), 1, 2.0);
    for (const double position : sut) {
        ASSERT_EQ(position, static_cast<double>(static_cast<float>(position)));
    }
}

TEST(InitialPositionsTest, AnotherSeedIsAnotherStart)
{
    const Geometry geometry;
    EXPECT_EQ(Positions(geometry, 1, 2.0), Positions(geometry, 1, 2.0));
    EXPECT_GT(Rms(Positions(geometry, 1, 2.0) - Positions(geometry, 2, 2.0)), 0.1);
}

TEST(InitialPositionsTest, AFlatStartIsFlat)
{
    EXPECT_EQ(Positions(Geometry(), 1, 0.0).cwiseAbs().maxCoeff(), 0.0);
}

/// Mean of independent figures, and its standard deviation as they show it.
struct Estimate
{
    double mean;
    double deviation;
};

Estimate MeanOf(const std::vector<double>& figures)
{
    const Eigen::Map<const Eigen::VectorXd> all(figures.data(), static_cast<Eigen::Index>(figures.size()));
    const double mean = all.mean();
    const auto count = static_cast<double>(figures.size());
    return {mean, (all.array() - mean).matrix().norm() / std::sqrt(count * (count - 1.0))};
}

TEST(InitialPositionsTest, TheyAreASmoothShapeWithATwentiethOfRippleAndAThousandthOfScatter)
{
    const Geometry geometry;
    const Directions directions(geometry);
    const double share_of_scatter = static_cast<double>(NUM_PACT - directions.CountAll()) / NUM_PACT;
    const double share_of_bumps = directions.ShareOfBumpsBesideSmooth();
    std::vector<double> smooth;  // mean squares, in units of the scatter's
    std::vector<double> ripple;
    for (std::uint64_t seed = 1; seed <= 20; ++seed) {
        const Eigen::VectorXd sut = Positions(geometry, seed, 2.0);
        const double scatter = MeanSquare(directions.BesideAll(sut)) / share_of_scatter;
        const double beside_smooth = MeanSquare(directions.BesideSmooth(sut)) / scatter;
        smooth.push_back(MeanSquare(sut) / scatter - beside_smooth);
        ripple.push_back((beside_smooth - 1.0) / share_of_bumps);
    }
    const Estimate smooth_to_scatter = MeanOf(smooth);
    const Estimate ripple_to_scatter = MeanOf(ripple);
    EXPECT_LT(smooth_to_scatter.deviation, 0.2e6) << "a bound that would say little";
    EXPECT_NEAR(smooth_to_scatter.mean, 1.0e6, 4.0 * smooth_to_scatter.deviation);
    EXPECT_LT(ripple_to_scatter.deviation, 0.1 * 2500.0) << "a bound that would say little";
    EXPECT_NEAR(ripple_to_scatter.mean, 2500.0, 4.0 * ripple_to_scatter.deviation);
}

}  // namespace
}  // namespace lumo::mirrorsim
