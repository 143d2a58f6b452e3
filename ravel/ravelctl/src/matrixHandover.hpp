#pragma once

#include <lumo/ravelcore/doubleBuffer.hpp>

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace lumo::ravelctl {

/// Hands a large matrix, cut into one part per slice, from a slow thread to the cycle without any cycle that takes
/// longer for it: it goes over in pieces, a few of them per cycle, into a spare, which is exchanged for the matrix in
/// force when it is whole. Copied at once, megabytes would cost a cycle or two.
///
/// One slow thread, one cycle thread. Publish, then StagePiece until IsStaged, then the exchange, then again.
class MatrixHandover
{
public:
    /// `sizes`: floats of each slice's part. Takes three times that memory. Real time: no.
    MatrixHandover(const std::string& name, const std::vector<std::size_t>& sizes);

    /// Hands in the next matrix, as many parts as slices. The one before must have been exchanged.
    /// Thread: the slow one. Real time: no.
    void Publish(const std::vector<std::vector<float>>& parts);

    // Thread: the cycle's. Real time: yes.

    /// Copies the next piece, of at most PIECE floats, into the spare. False when none is pending.
    bool StagePiece();

    /// A matrix has been published that has not been exchanged yet. Pairs with the release in Publish.
    bool IsPending() const { return m_published.load(std::memory_order_acquire); }

    /// The spare holds the whole of it.
    bool IsStaged() const { return IsPending() && m_num_staged == m_pieces.size(); }

    /// A slice's spare, to be exchanged for the matrix in force.
    std::vector<float>& GetSpare(std::size_t slice) { return m_spares.at(slice); }

    /// The spares have been exchanged: the next matrix may come.
    void Finish();

    static constexpr std::size_t PIECE = 65536;

private:
    struct Piece
    {
        std::size_t slice;
        std::size_t begin;
        std::unique_ptr<ravelcore::DoubleBuffer> buffer;
    };

    std::vector<Piece> m_pieces;
    std::vector<std::vector<float>> m_spares;
    std::vector<float> m_piece;  // the one on its way
    std::size_t m_num_staged = 0;
    std::atomic<bool> m_published{false};
};

}  // namespace lumo::ravelctl
