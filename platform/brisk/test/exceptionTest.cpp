#include <brisk/exception.hpp>

#include <gtest/gtest.h>

namespace brisk {

namespace {

class DerivedException : public Exception
{
public:
    using Exception::Exception;
};

Exception MakeFullException()
{
    Exception exception("no mirror");
    exception.SetFileName("mirror.cpp");
    exception.SetFunctionName("Find");
    exception.SetLineNumber(42);
    exception.SetClassName("Mirror");
    exception.SetExceptionStack({"first", "second"});
    return exception;
}

void ExpectFullException(const Exception& sut)
{
    EXPECT_STREQ(sut.what(), "no mirror");
    EXPECT_EQ(sut.GetMessage(), "no mirror");
    EXPECT_EQ(sut.GetFileName(), "mirror.cpp");
    EXPECT_EQ(sut.GetFunctionName(), "Find");
    EXPECT_EQ(sut.GetLineNumber(), 42);
    EXPECT_EQ(sut.GetClassName(), "Mirror");
    EXPECT_EQ(sut.GetExceptionStack(), (std::list<std::string>{"first", "second"}));
}

}  // namespace

TEST(ExceptionTest, NewOneHoldsItsMessageAndNothingElse)
{
    const Exception sut("no mirror");

    EXPECT_STREQ(sut.what(), "no mirror");
    EXPECT_EQ(sut.GetMessage(), "no mirror");
    EXPECT_EQ(sut.GetFileName(), "");
    EXPECT_EQ(sut.GetFunctionName(), "");
    EXPECT_EQ(sut.GetLineNumber(), 0);
    EXPECT_EQ(sut.GetClassName(), "");
    EXPECT_TRUE(sut.GetExceptionStack().empty());
}

TEST(ExceptionTest, GettersReturnWhatTheSettersWereGiven)
{
    ExpectFullException(MakeFullException());
}

TEST(ExceptionTest, CopyHoldsEverything)
{
    const Exception original = MakeFullException();
    Exception sut("another");
    sut = original;
    ExpectFullException(sut);
    ExpectFullException(Exception(original));  // NOLINT(performance-unnecessary-copy-initialization)
}

TEST(ExceptionTest, ThrownOneIsCaughtAsStdExceptionWithEverything)
{
    try {
        throw MakeFullException();
    } catch (const std::exception& caught) {
        EXPECT_STREQ(caught.what(), "no mirror");
        ExpectFullException(dynamic_cast<const Exception&>(caught));
    }
}

TEST(ExceptionTest, TypeNameIsDemangled)
{
    EXPECT_EQ(Exception("").GetTypeName(), "brisk::Exception");
}

TEST(ExceptionTest, TypeNameIsThatOfTheObjectAndNotOfTheReference)
{
    const DerivedException derived("");
    const Exception& sut = derived;
    EXPECT_EQ(sut.GetTypeName(), "brisk::(anonymous namespace)::DerivedException");
}

}  // namespace brisk
