#include "hugePages.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <vector>

namespace lumo::ravelctl {
namespace {

constexpr std::size_t MIB = std::size_t{1} << 20U;

// What the kernel was asked for, and what it answers: the function that stands for it has no place for them.
std::vector<std::uintptr_t> s_asked;
int s_answer = 0;
std::uintptr_t s_refused = 0;

int Pretend(void* address, std::size_t bytes)
{
    EXPECT_EQ(bytes, 2 * MIB);
    s_asked.push_back(reinterpret_cast<std::uintptr_t>(address));
    return s_asked.back() == s_refused ? ENOMEM : s_answer;
}

HugePages Put(std::uintptr_t address, std::size_t bytes)
{
    s_asked.clear();
    return PutIntoHugePages(reinterpret_cast<const void*>(address), bytes, Pretend);
}

TEST(HugePagesTest, EveryBlockThatHoldsSomeOfTheDataIsAskedFor)
{
    s_answer = 0;
    s_refused = 0;
    const HugePages pages = Put(101 * MIB, 5 * MIB);  // 101 to 106
    EXPECT_EQ(s_asked, (std::vector<std::uintptr_t>{100 * MIB, 102 * MIB, 104 * MIB}));
    EXPECT_EQ(pages.wanted_bytes, 5 * MIB);
    EXPECT_EQ(pages.granted_bytes, 5 * MIB);
    EXPECT_EQ(pages.error, 0);
}

TEST(HugePagesTest, ABlockThatIsRefusedIsNotCounted)
{
    s_answer = 0;
    s_refused = 100 * MIB;
    const HugePages first = Put(101 * MIB, 5 * MIB);
    EXPECT_EQ(first.granted_bytes, 4 * MIB);
    EXPECT_EQ(first.error, ENOMEM);
    s_refused = 104 * MIB;
    EXPECT_EQ(Put(101 * MIB, 4 * MIB).granted_bytes, 3 * MIB);
}

TEST(HugePagesTest, WhatIsSmallerThanAHugePageIsLeftAlone)
{
    const HugePages pages = Put(101 * MIB, 2 * MIB - 1);
    EXPECT_TRUE(s_asked.empty());
    EXPECT_EQ(pages.wanted_bytes, 0U);
}

TEST(HugePagesTest, SeveralPlacesAddUpWithTheLastError)
{
    HugePages sum{2, 1, EINVAL};
    sum.Add({5, 5, 0});
    EXPECT_EQ(sum.wanted_bytes, 7U);
    EXPECT_EQ(sum.granted_bytes, 6U);
    EXPECT_EQ(sum.error, EINVAL);
}

TEST(HugePagesTest, OnThisMachineTheDataStayAsTheyAre)
{
    std::vector<float> data(2'000'000);
    for (std::size_t i = 0; i < data.size(); ++i) {
        data[i] = static_cast<float>(i);
    }
    const std::vector<float> before = data;
    const HugePages pages = PutIntoHugePages(data.data(), data.size() * sizeof(float));
    EXPECT_EQ(data, before);
    EXPECT_EQ(pages.wanted_bytes, 8'000'000U);
    EXPECT_TRUE(pages.granted_bytes == pages.wanted_bytes || pages.error != 0);
}

}  // namespace
}  // namespace lumo::ravelctl
