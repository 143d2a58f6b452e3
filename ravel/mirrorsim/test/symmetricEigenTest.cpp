#include "symmetricEigen.hpp"

#include <gtest/gtest.h>

#include <cmath>

namespace lumo::mirrorsim {
namespace {

Eigen::MatrixXd SomeOrthogonalMatrix(Eigen::Index size)
{
    const Eigen::MatrixXd matrix = Eigen::MatrixXd::NullaryExpr(
        size, size, [](Eigen::Index i, Eigen::Index j) { return std::sin(static_cast<double>(1 + i * 7 + j * j)); });
    return Eigen::HouseholderQR<Eigen::MatrixXd>(matrix).householderQ();
}

/// 1, 2, 2, 3, 4, 4, 4, 5
Eigen::VectorXd ValuesWithAPairAndATriple()
{
    return (Eigen::VectorXd(8) << 1.0, 2.0, 2.0, 3.0, 4.0, 4.0, 4.0, 5.0).finished();
}

TEST(SymmetricEigenTest, SolutionReproducesTheMatrix)
{
    const Eigen::MatrixXd basis = SomeOrthogonalMatrix(8);
    const Eigen::MatrixXd matrix = basis * ValuesWithAPairAndATriple().asDiagonal() * basis.transpose();
    const SymmetricEigen sut = SolveSymmetricEigen(matrix);
    EXPECT_LT((sut.values - ValuesWithAPairAndATriple()).cwiseAbs().maxCoeff(), 1e-14);
    const Eigen::MatrixXd product = sut.vectors * sut.values.asDiagonal() * sut.vectors.transpose();
    EXPECT_LT((product - matrix).cwiseAbs().maxCoeff(), 1e-14);
}

TEST(SymmetricEigenTest, FixOrientationUndoesAnyTurnWithinEqualEigenvaluesAndAnySign)
{
    SymmetricEigen reference{ValuesWithAPairAndATriple(), SomeOrthogonalMatrix(8)};
    SymmetricEigen sut = reference;
    sut.vectors.middleCols(1, 2) *= SomeOrthogonalMatrix(2);
    sut.vectors.middleCols(4, 3) *= SomeOrthogonalMatrix(3);
    sut.vectors.col(0) *= -1.0;
    sut.vectors.col(7) *= -1.0;
    FixOrientation(reference, 1e-9);
    FixOrientation(sut, 1e-9);
    EXPECT_LT((sut.vectors - reference.vectors).cwiseAbs().maxCoeff(), 1e-13);
}

TEST(SymmetricEigenTest, FixOrientationKeepsTheVectorsEigenvectors)
{
    const Eigen::MatrixXd basis = SomeOrthogonalMatrix(8);
    const Eigen::MatrixXd matrix = basis * ValuesWithAPairAndATriple().asDiagonal() * basis.transpose();
    SymmetricEigen sut{ValuesWithAPairAndATriple(), basis};
    FixOrientation(sut, 1e-9);
    EXPECT_LT((matrix * sut.vectors - sut.vectors * sut.values.asDiagonal()).cwiseAbs().maxCoeff(), 1e-14);
    EXPECT_LT((sut.vectors.transpose() * sut.vectors - Eigen::MatrixXd::Identity(8, 8)).cwiseAbs().maxCoeff(), 1e-14);
}

TEST(SymmetricEigenTest, FixOrientationMakesTheFirstOfTheLargestElementsPositiveInSpiteOfRounding)
{
    SymmetricEigen sut{Eigen::Vector2d(1.0, 2.0), Eigen::MatrixXd(2, 2)};
    const double a = std::sqrt(0.5);
    sut.vectors << -a, a, a * (1.0 + 1e-15), a * (1.0 + 1e-15);
    FixOrientation(sut, 1e-9);
    EXPECT_GT(sut.vectors(0, 0), 0.0) << "the second element is larger by rounding only";
    EXPECT_LT(sut.vectors(1, 0), 0.0);
}

}  // namespace
}  // namespace lumo::mirrorsim
