#pragma once

#include <bit>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

/// FITS files byte by byte, so that tests can have files that the library's own writer never makes.
namespace lumo::ravelcore::test {

/// A column of a table as its header describes it.
struct FitsColumn
{
    std::string name;
    std::string format;
};

/// One header, padded to whole blocks; `cards` are up to 80 characters each, without END.
std::string FitsHeader(const std::vector<std::string>& cards);

/// A card with a value that is written as it stands.
std::string FitsCard(const std::string& keyword, const std::string& value);

/// An empty primary HDU.
std::string FitsPrimary();

/// The header of a binary table.
std::string FitsTableHeader(const std::vector<FitsColumn>& columns, std::size_t row_bytes, std::size_t rows,
                            std::size_t heap_bytes = 0, const std::vector<std::string>& more_cards = {});

/// A primary HDU and a binary table of `rows` rows, whose bytes are `data` and, after them, `heap`.
std::string FitsTableFile(const std::vector<FitsColumn>& columns, std::size_t rows, const std::string& data,
                          const std::string& heap = "", const std::vector<std::string>& more_cards = {});

/// `bytes` padded with zeros to whole blocks.
std::string FitsData(const std::string& bytes);

/// The bytes of numbers as FITS stores them, most significant first.
template <typename T>
std::string BigEndian(const std::vector<T>& numbers)
{
    using Bits =
        std::conditional_t<sizeof(T) == 8, std::uint64_t,
                           std::conditional_t<sizeof(T) == 4, std::uint32_t,
                                              std::conditional_t<sizeof(T) == 2, std::uint16_t, std::uint8_t>>>;
    std::string bytes;
    for (const T number : numbers) {
        const auto bits = std::bit_cast<Bits>(number);
        for (std::size_t byte = sizeof(T); byte > 0; --byte) {
            bytes.push_back(static_cast<char>((std::uint64_t{bits} >> (8 * (byte - 1))) & 0xFFU));
        }
    }
    return bytes;
}

/// Writes `bytes` to the file `path`, replacing it.
void WriteBytes(const std::string& path, const std::string& bytes);

/// All bytes of the file `path`.
std::string ReadBytes(const std::string& path);

}  // namespace lumo::ravelcore::test
