#include <vigil/app/activity.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

namespace vigil::app {

namespace {

class PlainActivity : public Activity
{
public:
    using Activity::Activity;
    ~PlainActivity() override { PlainActivity::JoinThread(); }

    void Run() override { m_seen_name = GetName(); }
    void Initialize() override {}
    void Configure(const std::vector<std::string>& /*args*/) override {}

    std::string m_seen_name;
};

/// The place of a virtual operation in the table, as the x86-64 C++ ABI encodes it in a pointer to member.
template <typename Member>
std::ptrdiff_t GetSlot(Member member)
{
    std::ptrdiff_t encoded = 0;  // 1 + offset in bytes; even if the operation is not virtual
    std::memcpy(&encoded, &member, sizeof(encoded));
    EXPECT_EQ(encoded % 8, 1) << "not virtual";
    return encoded / static_cast<std::ptrdiff_t>(sizeof(void*));
}

}  // namespace

TEST(ActivityTest, HandsItsArgumentsToTheThread)
{
    PlainActivity sut("segments", -1, 0);
    EXPECT_EQ(sut.getId(), "segments");
    EXPECT_EQ(sut.GetCPU(), -1);
    EXPECT_EQ(sut.GetPriority(), 0);
    sut.start(nullptr);
    sut.JoinThread();
    EXPECT_EQ(sut.m_seen_name, "segments");
}

TEST(ActivityTest, VirtualOperationsStandInTheAgreedOrder)
{
    // Slots 0 and 1 hold the two entries of the destructor.
    EXPECT_EQ(GetSlot(&Activity::start), 2);
    EXPECT_EQ(GetSlot(&Activity::stop), 3);
    EXPECT_EQ(GetSlot(&Activity::GetNativeHandle), 4);
    EXPECT_EQ(GetSlot(&Activity::IsThreadJoined), 5);
    EXPECT_EQ(GetSlot(&Activity::StartThread), 6);
    EXPECT_EQ(GetSlot(&Activity::JoinThread), 7);
    EXPECT_EQ(GetSlot(&Activity::Run), 8);
    EXPECT_EQ(GetSlot(&Activity::Initialize), 9);
    EXPECT_EQ(GetSlot(&Activity::Configure), 10);
}

}  // namespace vigil::app
