#include "fitsBytes.hpp"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace lumo::ravelcore::test {

namespace {

constexpr std::size_t BLOCK = 2880;
constexpr std::size_t CARD = 80;

std::string Padded(std::string bytes, char with)
{
    bytes.resize((bytes.size() + BLOCK - 1) / BLOCK * BLOCK, with);
    return bytes;
}

}  // namespace

std::string FitsHeader(const std::vector<std::string>& cards)
{
    std::string header;
    for (std::string card : cards) {
        card.resize(CARD, ' ');
        header += card;
    }
    return Padded(header + "END", ' ');
}

std::string FitsCard(const std::string& keyword, const std::string& value)
{
    std::string card = keyword;
    card.resize(8, ' ');
    const bool is_text = !value.empty() && value[0] == '\'';
    return card + "= " + (is_text || value.size() >= 20 ? value : std::string(20 - value.size(), ' ') + value);
}

std::string FitsPrimary()
{
    return FitsHeader(
        {FitsCard("SIMPLE", "T"), FitsCard("BITPIX", "8"), FitsCard("NAXIS", "0"), FitsCard("EXTEND", "T")});
}

std::string FitsTableHeader(const std::vector<FitsColumn>& columns, std::size_t row_bytes, std::size_t rows,
                            std::size_t heap_bytes, const std::vector<std::string>& more_cards)
{
    std::vector<std::string> cards = {FitsCard("XTENSION", "'BINTABLE'"),
                                      FitsCard("BITPIX", "8"),
                                      FitsCard("NAXIS", "2"),
                                      FitsCard("NAXIS1", std::to_string(row_bytes)),
                                      FitsCard("NAXIS2", std::to_string(rows)),
                                      FitsCard("PCOUNT", std::to_string(heap_bytes)),
                                      FitsCard("GCOUNT", "1"),
                                      FitsCard("TFIELDS", std::to_string(columns.size()))};
    for (std::size_t index = 0; index < columns.size(); ++index) {
        const std::string number = std::to_string(index + 1);
        cards.push_back(FitsCard("TTYPE" + number, "'" + columns[index].name + "'"));
        cards.push_back(FitsCard("TFORM" + number, "'" + columns[index].format + "'"));
    }
    cards.insert(cards.end(), more_cards.begin(), more_cards.end());
    return FitsHeader(cards);
}

std::string FitsTableFile(const std::vector<FitsColumn>& columns, std::size_t rows, const std::string& data,
                          const std::string& heap, const std::vector<std::string>& more_cards)
{
    const std::size_t row_bytes = rows == 0 ? 0 : data.size() / rows;
    return FitsPrimary() + FitsTableHeader(columns, row_bytes, rows, heap.size(), more_cards) + FitsData(data + heap);
}

std::string FitsData(const std::string& bytes)
{
    return Padded(bytes, '\0');
}

void WriteBytes(const std::string& path, const std::string& bytes)
{
    std::remove(path.c_str());  // some file systems wait for the disk when a file is cut to nothing and written again
    std::ofstream file(path, std::ios::binary);
    if (!(file << bytes << std::flush)) {
        throw std::runtime_error("cannot write " + path);
    }
}

std::string ReadBytes(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace lumo::ravelcore::test
