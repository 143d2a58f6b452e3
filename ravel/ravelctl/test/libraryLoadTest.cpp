#include "error.hpp"
#include "libraryLoad.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"
#include "support/thrown.hpp"

#include <lumo/ravelcore/utils.hpp>

#include <CCfits/CCfits>
#include <gtest/gtest.h>

#include <stdexcept>

namespace lumo::ravelctl {
namespace {

/// An error of the file layer; its own constructor for these is not public.
struct FitsError : CCfits::FitsException
{
    explicit FitsError(const std::string& text) : CCfits::FitsException(text, SILENT) {}

    static inline bool SILENT = true;
};

class LibraryLoadTest : public testing::Test
{
protected:
    LibraryLoadTest() { ravelcore::SaveMatrix(m_file.string(), "M", 2, 3, std::vector<float>(6)); }

    /// What becomes of an exception that leaves a load.
    template <typename Exception>
    std::string RefusalOf(const Exception& exception) const
    {
        return test::ThrownLine<InputError>(
            [&] { LoadThroughLibrary(m_file, [&exception](const std::string&) { throw exception; }); });
    }

    const test::TestFolder m_folder;
    const std::filesystem::path m_file = m_folder / "values.fits";
};

TEST_F(LibraryLoadTest, AFileIsLoadedOnceFromWhereItIs)
{
    std::vector<std::string> paths;
    LoadThroughLibrary(m_file, [&paths](const std::string& path) { paths.push_back(path); });
    EXPECT_EQ(paths, std::vector<std::string>{m_file.string()});
}

TEST_F(LibraryLoadTest, EveryKindOfErrorNamesTheFile)
{
    EXPECT_EQ(RefusalOf(std::runtime_error("no such column")), m_file.string() + ": no such column");
    EXPECT_EQ(RefusalOf(FitsError("no such column")),
              m_file.string() + ": expected a FITS file that can be read but: no such column");
}

TEST_F(LibraryLoadTest, AnErrorThatNamesTheFileIsNotGivenItsNameAgain)
{
    EXPECT_EQ(RefusalOf(std::runtime_error("cannot read " + m_file.string())), "cannot read " + m_file.string());
}

TEST_F(LibraryLoadTest, AnErrorOfSeveralLinesBecomesOne)
{
    EXPECT_EQ(RefusalOf(std::runtime_error("FITS Error: \nno such column\n")),
              m_file.string() + ": FITS Error: no such column");
}

TEST_F(LibraryLoadTest, AnErrorEndsSoThatWhatToDoCanFollow)
{
    EXPECT_EQ(RefusalOf(std::runtime_error("Not able to read it.")), m_file.string() + ": Not able to read it");
}

TEST_F(LibraryLoadTest, AMatrixThatIsIllFormedIsSaidToNeedRowsOfOneLength)
{
    EXPECT_EQ(RefusalOf(std::runtime_error("Ill formed matrix in <" + m_file.string() + "> binary table.")),
              "Ill formed matrix in <" + m_file.string() +
                  "> binary table: expected rows of one length; save the values with as many in each row");
}

TEST_F(LibraryLoadTest, ATableWithoutRowsDoesNotComeAsFarAsTheLibrary)
{
    std::string bytes = test::ReadBytes(m_file);
    const std::size_t rows = bytes.find("NAXIS2  =                    2");
    ASSERT_NE(rows, std::string::npos);
    bytes[rows + 29] = '0';
    test::WriteBytes(m_file, bytes);
    bool was_called = false;
    EXPECT_EQ(test::ThrownLine<InputError>(
                  [&] { LoadThroughLibrary(m_file, [&was_called](const std::string&) { was_called = true; }); }),
              m_file.string() + ": expected a FITS table with rows but it has none");
    EXPECT_FALSE(was_called);
}

}  // namespace
}  // namespace lumo::ravelctl
