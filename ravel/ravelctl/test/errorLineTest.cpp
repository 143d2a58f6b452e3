#include "errorLine.hpp"

#include <gtest/gtest.h>

namespace lumo::ravelctl {
namespace {

TEST(ErrorLineTest, ItNamesTheProgramAndIsOneLine)
{
    EXPECT_EQ(FormatErrorLine("cannot write a.fits"), "ravelctl: cannot write a.fits\n");
}

TEST(ErrorLineTest, WhateverStandsInTheMessageItStaysOneLineWithoutEscapeSequences)
{
    EXPECT_EQ(FormatErrorLine("a\nb\r\n\x1b[31mc\n"), "ravelctl: a b [31mc\n");
}

}  // namespace
}  // namespace lumo::ravelctl
