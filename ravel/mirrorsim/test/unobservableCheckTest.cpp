#include "unobservableCheck.hpp"

#include <lumo/mirrorsim/sensorMatrix.hpp>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace lumo::mirrorsim {
namespace {

/// Four unobservable directions at most, `fourth` and `fifth` in their places, then one that is seen well.
Eigen::VectorXd Eigenvalues(double fourth, double fifth)
{
    static_assert(NUM_UNOBSERVABLE == 4);
    return (Eigen::VectorXd(6) << -1e-15, 0.0, 1e-16, fourth, fifth, 16.0).finished();
}

std::string MessageOf(const Eigen::VectorXd& eigenvalues)
{
    try {
        CheckUnobservable(eigenvalues);
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "";
}

TEST(UnobservableCheckTest, AGapBehindTheFourthEigenvalueIsAccepted)
{
    EXPECT_EQ(MessageOf(Eigenvalues(1e-15, 4e-6)), "");
}

TEST(UnobservableCheckTest, ADirectionThatIsSeenAfterAllIsRefusedWithBothEigenvaluesHoweverSmall)
{
    EXPECT_EQ(MessageOf(Eigenvalues(4e-8, 4e-6)),
              "Expected exactly 4 unobservable directions, but relative to the largest eigenvalue number 4 is 2.5e-09 "
              "and the next 2.5e-07.");
}

TEST(UnobservableCheckTest, OneMoreUnobservableDirectionIsRefusedWithBothEigenvaluesHoweverSmall)
{
    EXPECT_EQ(MessageOf(Eigenvalues(8e-15, 4e-8)),
              "Expected exactly 4 unobservable directions, but relative to the largest eigenvalue number 4 is 5e-16 "
              "and the next 2.5e-09.");
}

}  // namespace
}  // namespace lumo::mirrorsim
