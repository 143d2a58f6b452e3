#include "matrixHandover.hpp"
#include "support/allocationGuard.hpp"
#include "support/quietLog.hpp"

#include <gtest/gtest.h>

#include <numeric>
#include <thread>

namespace lumo::ravelctl {
namespace {

using ravelcore::test::AllocationGuard;

using Parts = std::vector<std::vector<float>>;

constexpr std::size_t PIECE = MatrixHandover::PIECE;

/// Parts whose elements all differ, from `first` on.
Parts Ascending(const std::vector<std::size_t>& sizes, float first)
{
    Parts parts;
    for (const std::size_t size : sizes) {
        std::vector<float>& part = parts.emplace_back(size);
        std::iota(part.begin(), part.end(), first);
        first += static_cast<float>(size);
    }
    return parts;
}

class MatrixHandoverTest : public testing::Test
{
protected:
    MatrixHandoverTest() { test::QuietLog(); }
};

TEST_F(MatrixHandoverTest, SparesHaveTheSizesOfTheirSlicesAndNothingIsPendingAtFirst)
{
    const std::vector<std::size_t> sizes = {PIECE + 1, 3, 2 * PIECE};
    MatrixHandover sut("M", sizes);
    for (std::size_t slice = 0; slice < sizes.size(); ++slice) {
        EXPECT_EQ(sut.GetSpare(slice), std::vector<float>(sizes[slice], 0.0F)) << slice;
    }
    EXPECT_FALSE(sut.IsPending());
    EXPECT_FALSE(sut.IsStaged());
    EXPECT_FALSE(sut.StagePiece());
}

TEST_F(MatrixHandoverTest, AMatrixGoesOverInPiecesOfAtMostThatManyFloatsInOrder)
{
    const std::vector<std::size_t> sizes = {2 * PIECE + 5, 7, PIECE, PIECE + 1};  // 3 + 1 + 1 + 2 pieces
    const Parts parts = Ascending(sizes, 1.0F);
    MatrixHandover sut("M", sizes);
    sut.Publish(parts);
    struct Piece
    {
        std::size_t slice;
        std::size_t begin;
        std::size_t end;
    };
    const std::vector<Piece> pieces = {{0, 0, PIECE}, {0, PIECE, 2 * PIECE}, {0, 2 * PIECE, 2 * PIECE + 5}, {1, 0, 7},
                                       {2, 0, PIECE}, {3, 0, PIECE},         {3, PIECE, PIECE + 1}};
    Parts expected;
    for (const std::size_t size : sizes) {
        expected.emplace_back(size, 0.0F);
    }
    for (const Piece& piece : pieces) {
        EXPECT_FALSE(sut.IsStaged());
        ASSERT_TRUE(sut.StagePiece());
        for (std::size_t i = piece.begin; i < piece.end; ++i) {
            expected[piece.slice][i] = parts[piece.slice][i];
        }
        for (std::size_t slice = 0; slice < sizes.size(); ++slice) {
            ASSERT_TRUE(sut.GetSpare(slice) == expected[slice]) << "slice " << slice;
        }
    }
    EXPECT_TRUE(sut.IsStaged());
    EXPECT_FALSE(sut.StagePiece()) << "there is nothing left";
    EXPECT_TRUE(sut.IsPending()) << "until it is exchanged";
}

TEST_F(MatrixHandoverTest, AMatrixIsPendingFromItsPublicationToItsExchange)
{
    MatrixHandover sut("M", {3});
    sut.Publish({{1.0F, 2.0F, 3.0F}});
    EXPECT_TRUE(sut.IsPending());
    EXPECT_FALSE(sut.IsStaged());
    EXPECT_EQ(sut.GetSpare(0), std::vector<float>(3, 0.0F)) << "nothing goes over on its own";
    ASSERT_TRUE(sut.StagePiece());
    EXPECT_TRUE(sut.IsStaged());
    sut.Finish();
    EXPECT_FALSE(sut.IsPending());
    EXPECT_FALSE(sut.IsStaged());
    EXPECT_FALSE(sut.StagePiece());
}

TEST_F(MatrixHandoverTest, TheNextMatrixGoesOverFromItsFirstPieceOn)
{
    const std::vector<std::size_t> sizes = {PIECE + 2, 4};
    MatrixHandover sut("M", sizes);
    for (const float first : {1.0F, 500'000.0F, -7.0F}) {
        const Parts parts = Ascending(sizes, first);
        sut.Publish(parts);
        for (int piece = 0; piece < 3; ++piece) {
            ASSERT_TRUE(sut.StagePiece());
        }
        ASSERT_TRUE(sut.IsStaged());
        for (std::size_t slice = 0; slice < sizes.size(); ++slice) {
            EXPECT_TRUE(sut.GetSpare(slice) == parts[slice]) << "slice " << slice;
            std::vector<float> in_force(sizes[slice], 99.0F);
            in_force.swap(sut.GetSpare(slice));  // the spare is then the matrix before
        }
        sut.Finish();
    }
}

TEST_F(MatrixHandoverTest, TheCyclesSideNeverAllocates)
{
    const std::vector<std::size_t> sizes = {PIECE + 2, 4};
    MatrixHandover sut("M", sizes);
    Parts in_force = Ascending(sizes, 0.0F);
    for (int round = 0; round < 3; ++round) {
        sut.Publish(Ascending(sizes, 1.0F));
        const AllocationGuard guard;  // from the very first piece on
        while (sut.StagePiece()) {
        }
        const bool is_staged = sut.IsStaged();
        for (std::size_t slice = 0; slice < sizes.size(); ++slice) {
            in_force[slice].swap(sut.GetSpare(slice));
        }
        sut.Finish();
        EXPECT_EQ(guard.GetCount(), 0);
        EXPECT_TRUE(is_staged);
    }
}

TEST_F(MatrixHandoverTest, NoMatrixIsEverAMixtureOfTwo)
{
    const std::vector<std::size_t> sizes = {PIECE + 3, 10, 2};
    constexpr int NUM_MATRICES = 60;
    MatrixHandover sut("M", sizes);
    std::thread writer([&] {
        for (int number = 1; number <= NUM_MATRICES; ++number) {
            Parts parts;
            for (const std::size_t size : sizes) {
                parts.emplace_back(size, static_cast<float>(number));
            }
            while (sut.IsPending()) {
                std::this_thread::yield();
            }
            sut.Publish(parts);
        }
    });
    Parts in_force;
    for (const std::size_t size : sizes) {
        in_force.emplace_back(size, 0.0F);
    }
    int mixtures = 0;
    for (int number = 1; number <= NUM_MATRICES; ++number) {
        while (!sut.IsStaged()) {
            if (!sut.StagePiece()) {
                std::this_thread::yield();
            }
        }
        for (std::size_t slice = 0; slice < sizes.size(); ++slice) {
            in_force[slice].swap(sut.GetSpare(slice));
            mixtures += in_force[slice] == std::vector<float>(sizes[slice], static_cast<float>(number)) ? 0 : 1;
        }
        sut.Finish();
    }
    writer.join();
    EXPECT_EQ(mixtures, 0);
    EXPECT_FALSE(sut.IsPending());
}

}  // namespace
}  // namespace lumo::ravelctl
