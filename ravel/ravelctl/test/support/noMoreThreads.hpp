#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <cstddef>

namespace lumo::ravelctl::test {

/// While it lives no thread of this process can be started that does not ask for a stack of its own size: the stacks
/// would not fit into the address space.
class NoMoreThreads
{
public:
    NoMoreThreads()
    {
        pthread_getattr_default_np(&m_before);
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        constexpr std::size_t MORE_THAN_THERE_IS = std::size_t{1} << 48U;
        pthread_attr_setstacksize(&attributes, MORE_THAN_THERE_IS);
        EXPECT_EQ(pthread_setattr_default_np(&attributes), 0);
        pthread_attr_destroy(&attributes);
    }

    ~NoMoreThreads()
    {
        pthread_setattr_default_np(&m_before);
        pthread_attr_destroy(&m_before);
    }

    NoMoreThreads(const NoMoreThreads&) = delete;
    NoMoreThreads& operator=(const NoMoreThreads&) = delete;

private:
    pthread_attr_t m_before{};
};

}  // namespace lumo::ravelctl::test
