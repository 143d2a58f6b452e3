#include "memoryRead.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace lumo::ravelctl {
namespace {

std::vector<unsigned char> Bytes(std::size_t size)
{
    std::vector<unsigned char> bytes(size);
    unsigned state = 1;
    for (unsigned char& byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<unsigned char>(state >> 24U);
    }
    return bytes;
}

TEST(MemoryReadTest, EveryByteOfAnySizeIsRead)
{
    for (const std::size_t size : {0U, 1U, 7U, 8U, 9U, 255U, 256U, 257U, 1000U, 4096U, 100003U}) {
        std::vector<unsigned char> bytes = Bytes(size);
        const std::uint64_t sum = ReadMemory(bytes.data(), size);
        for (std::size_t i = 0; i < size; i += 1 + size / 50) {
            bytes[i] ^= 0x10U;
            EXPECT_NE(ReadMemory(bytes.data(), size), sum) << "byte " << i << " of " << size;
            bytes[i] ^= 0x10U;
        }
        EXPECT_EQ(ReadMemory(bytes.data(), size), sum);
    }
}

TEST(MemoryReadTest, WhatComesBackIsTheExclusiveOrOfTheWords)
{
    const std::vector<unsigned char> bytes = Bytes(2003);
    std::uint64_t expected = 0;
    for (std::size_t i = 0; i < bytes.size(); i += 8) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes.data() + i, std::min<std::size_t>(8, bytes.size() - i));
        expected ^= word;
    }
    EXPECT_EQ(ReadMemory(bytes.data(), bytes.size()), expected);
}

}  // namespace
}  // namespace lumo::ravelctl
