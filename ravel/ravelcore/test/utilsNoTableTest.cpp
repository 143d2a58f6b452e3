#include "support/logCapture.hpp"
#include "support/temporaryDirectory.hpp"
#include "support/thrown.hpp"

#include <lumo/ravelcore/utils.hpp>

#include <CCfits/CCfits>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

/// Stands before the FITS library's function in this program: it gives no table.
__attribute__((visibility("default"))) CCfits::Table* CCfits::FITS::addTable(
    const std::string& /*name*/, int /*rows*/, const std::vector<std::string>& /*names*/,
    const std::vector<std::string>& /*formats*/, const std::vector<std::string>& /*units*/, HduType /*type*/,
    int /*version*/)
{
    return nullptr;
}

namespace lumo::ravelcore {
namespace {

using test::ExpectException;
using test::Thrown;
using ::testing::IsEmpty;

TEST(UtilsNoTableTest, ATableThatTheFitsLibraryDoesNotGiveIsAnErrorAndLeavesNoFile)
{
    const test::LogCapture log("ravelcore", log4cplus::ERROR_LOG_LEVEL);
    const test::TemporaryDirectory dir;
    const std::vector<float> values = {1, 2, 3, 4};
    for (const std::string& file : {dir / "m.fits", dir / "m.fits.gz"}) {
        ExpectException(Thrown([&] { SaveMatrixToFitsBinTable(file, "M", 2, 2, {}, values); }),
                        "Failed adding binary table", "SaveMatrixToFitsBinTable", "utils.cpp");
        ExpectException(Thrown([&] { SaveMatrix(file, "M", 2, 2, values); }), "Failed adding binary table",
                        "SaveMatrixToFitsBinTable", "utils.cpp");
    }
    EXPECT_THAT(dir.List(), IsEmpty());
}

}  // namespace
}  // namespace lumo::ravelcore
