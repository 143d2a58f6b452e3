#include <lumo/mirrorsim/geometry.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numbers>
#include <set>
#include <stdexcept>
#include <utility>

namespace lumo::mirrorsim {
namespace {

constexpr double ROUNDING_M = 1e-12;

double Distance(double x1, double y1, double x2, double y2)
{
    return std::hypot(x1 - x2, y1 - y2);
}

TEST(GeometryTest, MirrorHas798SegmentsAnd2262SharedEdges)
{
    const Geometry sut;
    EXPECT_EQ(sut.GetSegments().size(), 798U);
    EXPECT_EQ(sut.GetEdges().size(), 2262U);
    EXPECT_EQ(sut.GetSensors().size(), 4524U);
    EXPECT_EQ(sut.GetActuators().size(), 2394U);
    EXPECT_EQ(NUM_ES, 4788);
}

TEST(GeometryTest, SegmentStandsExactlyWhereTheAxialRuleHolds)
{
    const Geometry sut;
    int expected_index = 0;
    for (int q = -40; q <= 40; ++q) {
        for (int r = -40; r <= 40; ++r) {
            const bool beyond_hole = std::abs(q) > 4 || std::abs(r) > 4 || std::abs(q + r) > 4;
            const bool stands = beyond_hole && q * q + q * r + r * r <= 237;
            ASSERT_EQ(sut.FindSegment(q, r), stands ? expected_index++ : -1) << "at " << q << ", " << r;
        }
    }
    EXPECT_EQ(expected_index, NUM_SEGMENTS);
}

TEST(GeometryTest, NeighboursAreOnePitchApartAndNoSegmentIsCloser)
{
    const Geometry sut;
    const auto& segments = sut.GetSegments();
    int pairs_at_one_pitch = 0;
    for (std::size_t i = 0; i < segments.size(); ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            const double distance = Distance(segments[i].x_m, segments[i].y_m, segments[j].x_m, segments[j].y_m);
            ASSERT_GT(distance, PITCH_M - ROUNDING_M);
            pairs_at_one_pitch += distance < PITCH_M + ROUNDING_M ? 1 : 0;
        }
    }
    EXPECT_EQ(pairs_at_one_pitch, NUM_EDGES);
}

TEST(GeometryTest, EdgesLeadToTheNeighboursAtTheThreeOwnedDirections)
{
    const Geometry sut;
    std::set<std::pair<int, int>> seen;
    for (const Edge& edge : sut.GetEdges()) {
        const Segment& owner = sut.GetSegments().at(static_cast<std::size_t>(edge.owner));
        const Segment& neighbour = sut.GetSegments().at(static_cast<std::size_t>(edge.neighbour));
        const std::pair<int, int> step{neighbour.q - owner.q, neighbour.r - owner.r};
        const std::pair<int, int> expected[] = {{1, 0}, {0, 1}, {1, -1}};
        ASSERT_EQ(step, expected[edge.direction]);
        ASSERT_EQ(sut.FindNeighbour(edge.owner, edge.direction), edge.neighbour);
        ASSERT_TRUE(seen.insert(std::minmax(edge.owner, edge.neighbour)).second) << "an edge with two owners";
    }
}

TEST(GeometryTest, ActuatorsOfASegmentStandAt120DegreesOnACircleOf0Point35Pitch)
{
    const Geometry sut;
    for (int segment = 0; segment < NUM_SEGMENTS; ++segment) {
        const Segment& at = sut.GetSegments().at(static_cast<std::size_t>(segment));
        const std::size_t first = std::size_t{3} * static_cast<std::size_t>(segment);
        for (std::size_t j = 0; j < 3; ++j) {
            const Point& actuator = sut.GetActuators().at(first + j);
            const Point& next = sut.GetActuators().at(first + (j + 1) % 3);
            ASSERT_NEAR(Distance(actuator.x_m, actuator.y_m, at.x_m, at.y_m), 0.35 * 1.25, ROUNDING_M);
            // Chord of 120 degrees.
            ASSERT_NEAR(Distance(actuator.x_m, actuator.y_m, next.x_m, next.y_m), 0.35 * 1.25 * std::numbers::sqrt3,
                        ROUNDING_M);
            const double angle = std::atan2(actuator.y_m - at.y_m, actuator.x_m - at.x_m);
            ASSERT_NEAR(std::remainder(angle - (90.0 + 120.0 * static_cast<double>(j)) / 180.0 * std::numbers::pi,
                                       2.0 * std::numbers::pi),
                        0.0, ROUNDING_M);
        }
    }
}

TEST(GeometryTest, SensorsStandOnTheirEdge0Point3SideLengthsFromItsMidpoint)
{
    const Geometry sut;
    const double side = 1.25 / std::numbers::sqrt3;
    for (const Sensor& sensor : sut.GetSensors()) {
        const Segment& owner = sut.GetSegments().at(static_cast<std::size_t>(sensor.owner));
        const Segment& neighbour = sut.GetSegments().at(static_cast<std::size_t>(sensor.neighbour));
        const Point& at = sensor.position;
        const Point midpoint{(owner.x_m + neighbour.x_m) / 2.0, (owner.y_m + neighbour.y_m) / 2.0};
        ASSERT_NEAR(Distance(at.x_m, at.y_m, midpoint.x_m, midpoint.y_m), 0.3 * side, ROUNDING_M);
        ASSERT_NEAR(Distance(at.x_m, at.y_m, owner.x_m, owner.y_m),
                    Distance(at.x_m, at.y_m, neighbour.x_m, neighbour.y_m), ROUNDING_M)
            << "not on the line between the two";
        // To the left or right of the way from the owner to the neighbour.
        const double cross = (neighbour.x_m - owner.x_m) * (at.y_m - midpoint.y_m) -
                             (neighbour.y_m - owner.y_m) * (at.x_m - midpoint.x_m);
        ASSERT_EQ(cross > 0.0 ? 1 : 0, sensor.slot % 2) << "j = 0 stands clockwise of the midpoint";
    }
}

TEST(GeometryTest, SlotsAreNumberedBySegmentDirectionAndSensorAndExistWhereTheNeighbourStands)
{
    const Geometry sut;
    std::size_t sensor = 0;
    for (int segment = 0; segment < NUM_SEGMENTS; ++segment) {
        for (int k = 0; k < 3; ++k) {
            const int neighbour = sut.FindNeighbour(segment, k);
            for (int j = 0; j < 2; ++j) {
                const int slot = 6 * segment + 2 * k + j;
                ASSERT_EQ(sut.HasSensor(slot), neighbour >= 0);
                if (neighbour >= 0) {
                    ASSERT_EQ(sut.GetSensors().at(sensor).slot, slot);
                    ASSERT_EQ(sut.GetSensors().at(sensor).owner, segment);
                    ASSERT_EQ(sut.GetSensors().at(sensor).neighbour, neighbour);
                    ++sensor;
                }
            }
        }
    }
    EXPECT_EQ(sensor, sut.GetSensors().size());
}

TEST(GeometryTest, LookUpsBeyondTheMirrorThrowWithBothNumbers)
{
    const Geometry sut;
    EXPECT_THROW(sut.HasSensor(-1), std::out_of_range);
    EXPECT_THROW(sut.HasSensor(NUM_ES), std::out_of_range);
    EXPECT_THROW(sut.FindNeighbour(-1, 0), std::out_of_range);
    EXPECT_THROW(sut.FindNeighbour(0, 3), std::out_of_range);
    try {
        sut.FindNeighbour(NUM_SEGMENTS, 0);
        FAIL() << "no exception";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "Expected a segment of 0 to 797 but received 798.");
    }
}

TEST(GeometryTest, ActuatorWeightsReproduceEveryPlane)
{
    const Geometry geometry;
    const Segment& centre = geometry.GetSegments().at(0);
    const auto plane = [](double x, double y) {
        return 0.7 - 1.3 * x + 2.1 * y;
    };
    for (const Point offset : {Point{0.0, 0.0}, Point{0.3, -0.2}, Point{-0.6, 0.1}}) {
        const auto weights = ActuatorWeights(offset);
        double height = 0.0;
        for (std::size_t j = 0; j < 3; ++j) {
            const Point& actuator = geometry.GetActuators().at(j);
            height += weights.at(j) * plane(actuator.x_m, actuator.y_m);
        }
        EXPECT_NEAR(height, plane(centre.x_m + offset.x_m, centre.y_m + offset.y_m), 1e-11);
    }
}

}  // namespace
}  // namespace lumo::mirrorsim
