#include "matrixHandover.hpp"

#include <algorithm>

namespace lumo::ravelctl {

MatrixHandover::MatrixHandover(const std::string& name, const std::vector<std::size_t>& sizes)
{
    for (std::size_t slice = 0; slice < sizes.size(); ++slice) {
        m_spares.emplace_back(sizes[slice], 0.0F);
        for (std::size_t begin = 0; begin < sizes[slice]; begin += PIECE) {
            const std::size_t size = std::min(PIECE, sizes[slice] - begin);
            m_pieces.push_back({slice, begin, std::make_unique<ravelcore::DoubleBuffer>(name, static_cast<int>(size))});
        }
    }
    m_piece.resize(PIECE);
}

void MatrixHandover::Publish(const std::vector<std::vector<float>>& parts)
{
    for (const Piece& piece : m_pieces) {
        const auto begin = parts.at(piece.slice).begin() + static_cast<std::ptrdiff_t>(piece.begin);
        piece.buffer->Set(std::vector<float>(begin, begin + piece.buffer->GetSize()));
    }
    m_published.store(true, std::memory_order_release);
}

bool MatrixHandover::StagePiece()
{
    if (!IsPending() || m_num_staged == m_pieces.size()) {
        return false;
    }
    const Piece& piece = m_pieces[m_num_staged];
    if (!piece.buffer->TryRead(m_piece)) {
        return false;
    }
    std::copy(m_piece.begin(), m_piece.end(), m_spares[piece.slice].begin() + static_cast<std::ptrdiff_t>(piece.begin));
    ++m_num_staged;
    return true;
}

void MatrixHandover::Finish()
{
    m_num_staged = 0;
    m_published.store(false, std::memory_order_release);
}

}  // namespace lumo::ravelctl
