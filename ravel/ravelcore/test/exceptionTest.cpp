#include <brisk/exception.hpp>
#include <lumo/ravelcore/exception.hpp>

#include <gtest/gtest.h>

#include <exception>
#include <list>
#include <string>

namespace lumo::ravelcore {
namespace {

brisk::Exception Make(const std::string& file)
{
    return CreateExceptionObject(7, file, 42, "SetMatrix", "It is broken.");
}

void ThrowFromHere()
{
    RAVELCORE_THROW(std::string("thrown ") + "text");
}

TEST(ExceptionTest, CarriesMessageFunctionAndLineAsGiven)
{
    const brisk::Exception sut = Make("somewhere.cpp");
    EXPECT_EQ(sut.GetMessage(), "It is broken.");
    EXPECT_EQ(sut.GetFunctionName(), "SetMatrix");
    EXPECT_EQ(sut.GetLineNumber(), 42);
}

TEST(ExceptionTest, FileNameHasNoDirectories)
{
    EXPECT_EQ(Make("ravel/ravelcore/src/taskEdc.cpp").GetFileName(), "taskEdc.cpp");
    EXPECT_EQ(Make("/opt/source tree/x.y/taskEdc.cpp").GetFileName(), "taskEdc.cpp");
    EXPECT_EQ(Make("taskEdc.cpp").GetFileName(), "taskEdc.cpp");
    EXPECT_EQ(Make("../taskEdc").GetFileName(), "taskEdc");
    EXPECT_EQ(Make("").GetFileName(), "");
}

TEST(ExceptionTest, ClassNameIsThatOfTheExceptionItself)
{
    EXPECT_EQ(Make("x.cpp").GetClassName(), "brisk::Exception");
}

TEST(ExceptionTest, StackHasOneEntryTheTypeName)
{
    const brisk::Exception sut = Make("x.cpp");
    EXPECT_EQ(sut.GetExceptionStack(), std::list<std::string>{"brisk::Exception"});
    EXPECT_EQ(sut.GetExceptionStack().front(), sut.GetTypeName());
}

TEST(ExceptionTest, CodeChangesNothing)
{
    const brisk::Exception one = CreateExceptionObject(0, "d/x.cpp", 1, "F", "text");
    const brisk::Exception other = CreateExceptionObject(-5, "d/x.cpp", 1, "F", "text");
    EXPECT_EQ(one.GetMessage(), other.GetMessage());
    EXPECT_EQ(one.GetFileName(), other.GetFileName());
    EXPECT_EQ(one.GetExceptionStack(), other.GetExceptionStack());
}

TEST(ExceptionTest, MacroThrowsByValueFromThePlaceWhereItStands)
{
    try {
        ThrowFromHere();
        FAIL() << "nothing was thrown";
    } catch (const brisk::Exception& seen) {
        EXPECT_EQ(seen.GetMessage(), "thrown text");
        EXPECT_EQ(seen.GetFileName(), "exceptionTest.cpp");
        EXPECT_EQ(seen.GetFunctionName(), "ThrowFromHere");
        EXPECT_GT(seen.GetLineNumber(), 0);
        EXPECT_LT(seen.GetLineNumber(), __LINE__);
    }
}

}  // namespace
}  // namespace lumo::ravelcore
