#include "support/allocationHook.hpp"
#include "support/logCapture.hpp"

#include <lumo/ravelcore/doubleBuffer.hpp>
#include <lumo/ravelcore/doubleMap.hpp>
#include <lumo/ravelcore/lazyBuffer.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <future>
#include <map>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace lumo::ravelcore {
namespace {

using test::AllocationHook;
using test::LogCapture;
using ::testing::Each;
using ::testing::ElementsAre;

/// Of vectors enough that a copy takes its time, of maps few, which take theirs anyway.
template <typename Buffer>
constexpr int SIZE = std::is_same_v<Buffer, DoubleMap> ? 5 : 64;

/// Publishes values that all are the publication's number.
template <typename Buffer>
class Writer
{
public:
    explicit Writer(Buffer& buffer) : m_buffer(buffer), m_values(SIZE<Buffer>) {}

    void Publish(std::uint32_t number)
    {
        std::fill(m_values.begin(), m_values.end(), static_cast<float>(number));
        if constexpr (std::is_same_v<Buffer, LazyBuffer>) {
            m_buffer.Write(m_values);
        } else if constexpr (std::is_same_v<Buffer, DoubleMap>) {
            PublishMap(number);
        } else {
            m_buffer.Set(m_values);
        }
    }

private:
    /// Whole maps and vectors by turns.
    void PublishMap(std::uint32_t number)
    {
        if (number % 2 == 0) {
            m_buffer.Set(m_values);
            return;
        }
        for (int key = 0; key < SIZE<Buffer>; ++key) {
            m_map[key] = static_cast<float>(number);
        }
        m_buffer.Set(m_map);
    }

    Buffer& m_buffer;
    std::vector<float> m_values;
    std::map<int, float> m_map;
};

template <typename Buffer>
class ParameterBufferThreadTest : public ::testing::Test
{
protected:
    static Buffer MakeSut()
    {
        if constexpr (std::is_same_v<Buffer, DoubleMap>) {
            return Buffer("parameters");
        } else {
            return Buffer("parameters", SIZE<Buffer>);
        }
    }

    LogCapture m_log{"ravelcore", log4cplus::INFO_LOG_LEVEL};
    Buffer m_sut = MakeSut();
    Writer<Buffer> m_writer{m_sut};
};

using Buffers = ::testing::Types<DoubleBuffer, DoubleMap, LazyBuffer>;
class BufferNames
{
public:
    template <typename Buffer>
    static std::string GetName(int /*index*/)
    {
        return std::is_same_v<Buffer, DoubleBuffer> ? "DoubleBuffer"
               : std::is_same_v<Buffer, DoubleMap>  ? "DoubleMap"
                                                    : "LazyBuffer";
    }
};
TYPED_TEST_SUITE(ParameterBufferThreadTest, Buffers, BufferNames);

/// The reader of a hand-over: takes what is published and looks whether it is whole and newer than what it took before.
template <typename Buffer>
class Reader
{
public:
    explicit Reader(Buffer& buffer) : m_buffer(buffer), m_values(SIZE<Buffer>) {}

    /// Takes what there is, until it is publication number `last`. One that got lost would be waited for until the
    /// time limit of the test program.
    void Run(std::uint32_t last)
    {
        while (m_last_seen.load(std::memory_order_relaxed) < last) {
            if (m_buffer.TryRead(m_values)) {
                Look();
            } else {
                std::this_thread::yield();
            }
        }
    }

    /// The newest publication that was taken. Any thread; it orders nothing, so that it hides no race.
    std::uint32_t GetLastSeen() const { return m_last_seen.load(std::memory_order_relaxed); }

    // After Run.
    std::uint32_t GetNumTaken() const { return m_num_taken; }
    const std::string& GetFlaw() const { return m_flaw; }

private:
    void Look()
    {
        ++m_num_taken;
        const auto number = static_cast<std::uint32_t>(*std::max_element(m_values.begin(), m_values.end()));
        if (std::any_of(m_values.begin(), m_values.end(), [&](float value) { return value != m_values[0]; })) {
            m_flaw = "torn publication " + std::to_string(number);
        }
        const std::uint32_t before = m_last_seen.load(std::memory_order_relaxed);
        if (number <= before) {
            m_flaw = "publication " + std::to_string(number) + " after " + std::to_string(before);
        }
        m_last_seen.store(std::max(number, before), std::memory_order_relaxed);
    }

    Buffer& m_buffer;
    std::vector<float> m_values;
    std::atomic<std::uint32_t> m_last_seen{0};
    std::uint32_t m_num_taken = 0;
    std::string m_flaw;
};

TYPED_TEST(ParameterBufferThreadTest, PublicationsThatAreWaitedForAreEachTakenOnceAndWhole)
{
    constexpr std::uint32_t NUM_HAND_OVERS = 100000;
    Reader<TypeParam> reader(this->m_sut);
    {
        const std::jthread thread([&] { reader.Run(NUM_HAND_OVERS); });
        for (std::uint32_t number = 1; number <= NUM_HAND_OVERS; ++number) {
            this->m_writer.Publish(number);
            while (reader.GetLastSeen() < number) {
                std::this_thread::yield();
            }
        }
    }
    EXPECT_EQ(reader.GetFlaw(), "");
    EXPECT_EQ(reader.GetNumTaken(), NUM_HAND_OVERS);
    EXPECT_FALSE(this->m_sut.IsUpdated());
}

TYPED_TEST(ParameterBufferThreadTest, ReaderOfAMillionPublicationsNeverTakesAMixtureOrAnOlderOne)
{
    constexpr std::uint32_t NUM_PUBLICATIONS = 1000000;
    constexpr std::uint32_t MAX_LEAD = 1000;
    Reader<TypeParam> reader(this->m_sut);
    {
        const std::jthread thread([&] { reader.Run(NUM_PUBLICATIONS); });
        for (std::uint32_t number = 1; number <= NUM_PUBLICATIONS; ++number) {
            this->m_writer.Publish(number);
            while (number - reader.GetLastSeen() > MAX_LEAD) {
                std::this_thread::yield();
            }
        }
    }
    EXPECT_EQ(reader.GetFlaw(), "");
    EXPECT_EQ(reader.GetLastSeen(), NUM_PUBLICATIONS);
    EXPECT_GE(reader.GetNumTaken(), NUM_PUBLICATIONS / (MAX_LEAD + 1));
}

TYPED_TEST(ParameterBufferThreadTest, OfSeveralReadersOneTakesEachPublication)
{
    constexpr std::uint32_t NUM_HAND_OVERS = 20000;
    std::vector<std::atomic<int>> num_taken(NUM_HAND_OVERS + 1);  // of each publication
    std::atomic<std::uint32_t> num_torn{0};
    {
        std::vector<std::jthread> readers;
        for (int i = 0; i < 2; ++i) {
            readers.emplace_back([&](const std::stop_token& stop) {
                std::vector<float> values(SIZE<TypeParam>);
                while (!stop.stop_requested()) {
                    if (this->m_sut.TryRead(values)) {
                        const bool whole = values == std::vector<float>(SIZE<TypeParam>, values[0]);
                        num_torn.fetch_add(whole ? 0 : 1, std::memory_order_relaxed);
                        num_taken[static_cast<std::size_t>(values[0])].fetch_add(1, std::memory_order_relaxed);
                    }
                    std::this_thread::yield();
                }
            });
        }
        for (std::uint32_t number = 1; number <= NUM_HAND_OVERS; ++number) {
            this->m_writer.Publish(number);
            while (num_taken[number].load(std::memory_order_relaxed) == 0) {
                std::this_thread::yield();
            }
        }
    }
    EXPECT_TRUE(std::all_of(num_taken.begin() + 1, num_taken.end(), [](const auto& count) { return count == 1; }));
    EXPECT_EQ(num_torn.load(), 0U);
}

/// The values that the slow side sees.
std::vector<float> ValuesOf(const std::vector<float>& values)
{
    return values;
}
std::vector<float> ValuesOf(const std::map<int, float>& map)
{
    std::vector<float> values;
    for (const auto& [key, value] : map) {
        values.push_back(value);
    }
    return values;
}

TYPED_TEST(ParameterBufferThreadTest, GetWhileTheWriterPublishesIsNeverAMixtureOrAStepBack)
{
    constexpr std::uint32_t NUM_PUBLICATIONS = 20000;
    this->m_writer.Publish(1);
    std::atomic<std::uint32_t> num_seen{0};
    std::string flaw;
    {
        const std::jthread looker([&](const std::stop_token& stop) {
            float last = 0.0F;
            while (!stop.stop_requested()) {
                const std::vector<float> seen = ValuesOf(this->m_sut.Get());
                if (seen != std::vector<float>(SIZE<TypeParam>, seen[0]) || seen[0] < last) {
                    flaw = std::to_string(seen[0]) + " after " + std::to_string(last);
                }
                last = seen[0];
                num_seen.fetch_add(1, std::memory_order_relaxed);
            }
        });
        std::vector<float> values(SIZE<TypeParam>);
        for (std::uint32_t number = 2; number <= NUM_PUBLICATIONS; ++number) {
            this->m_writer.Publish(number);
            this->m_sut.TryRead(values);
            while (number - num_seen.load(std::memory_order_relaxed) > 100 &&
                   num_seen.load(std::memory_order_relaxed) < number) {
                std::this_thread::yield();
            }
        }
    }
    EXPECT_EQ(flaw, "");
}

/// Runs `action` in a thread of its own while this one holds the lock of `buffer`: Get copies, and so allocates, under
/// it. If the action waits for the lock it gets it in the end, so that the test can fail instead of hanging.
template <typename Buffer, typename Action>
void RunWhileLocked(const Buffer& buffer, Action&& action)
{
    bool waited = false;
    std::future<void> done;
    {
        const AllocationHook hook([&] {
            done = std::async(std::launch::async, action);
            waited = done.wait_for(std::chrono::minutes(1)) != std::future_status::ready;  // a watchdog
        });
        const auto copy = buffer.Get();
        ASSERT_TRUE(hook.WasCalled());
    }
    done.get();
    EXPECT_FALSE(waited) << "for the lock";
}

TYPED_TEST(ParameterBufferThreadTest, TryReadNeverWaitsForTheLockAndChangesNothingWhileItIsTaken)
{
    this->m_writer.Publish(5);
    bool taken = true;
    std::vector<float> values(SIZE<TypeParam>, -7.0F);
    RunWhileLocked(this->m_sut, [&] { taken = this->m_sut.TryRead(values); });
    EXPECT_FALSE(taken);
    EXPECT_THAT(values, Each(-7.0F));
    EXPECT_TRUE(this->m_sut.IsUpdated());
    EXPECT_TRUE(this->m_sut.TryRead(values)) << "the next cycle takes it";
    EXPECT_THAT(values, Each(5.0F));
}

TYPED_TEST(ParameterBufferThreadTest, TryReadWithNothingToTakeNeverWaitsForTheLockEither)
{
    this->m_writer.Publish(5);
    std::vector<float> values(SIZE<TypeParam>);
    ASSERT_TRUE(this->m_sut.TryRead(values));
    bool taken = true;
    RunWhileLocked(this->m_sut, [&] { taken = this->m_sut.TryRead(values); });
    EXPECT_FALSE(taken);
}

template <typename Buffer>
void ExpectFlagWithoutLock(Buffer& sut)
{
    const LogCapture log("ravelcore", log4cplus::INFO_LOG_LEVEL);
    Writer(sut).Publish(5);
    bool was_updated = false;
    RunWhileLocked(sut, [&] {
        was_updated = sut.IsUpdated();
        sut.ClearUpdated();
    });
    EXPECT_TRUE(was_updated);
    EXPECT_FALSE(sut.IsUpdated());
}

TEST(DoubleBufferThreadTest, FlagIsReadAndLoweredWithoutTheLock)
{
    DoubleBuffer sut("parameters", SIZE<DoubleBuffer>);
    ExpectFlagWithoutLock(sut);
}

TEST(DoubleMapThreadTest, FlagIsReadAndLoweredWithoutTheLock)
{
    DoubleMap sut("parameters");
    ExpectFlagWithoutLock(sut);
}

TEST(DoubleMapThreadTest, SetFillsTheWriteSideWithoutTheLock)
{
    const LogCapture log("ravelcore", log4cplus::INFO_LOG_LEVEL);
    DoubleMap sut("parameters");
    sut.Set(std::map<int, float>{{0, 1.0F}});
    const std::map<int, float> large = {{0, 2.0F}, {1, 2.0F}, {2, 2.0F}};
    for (const bool as_map : {true, false}) {
        std::vector<float> values(3);
        bool taken = false;
        {
            // The first allocation is that of a node of the write side.
            const std::vector<float> longer(10, 3.0F);
            const AllocationHook hook([&] { std::thread([&] { taken = sut.TryRead(values); }).join(); });
            as_map ? sut.Set(large) : sut.Set(longer);
            ASSERT_TRUE(hook.WasCalled());
        }
        EXPECT_TRUE(taken) << "the lock is free, and what was published before is still to be read";
        EXPECT_THAT(values, ElementsAre(as_map ? 1.0F : 2.0F, as_map ? 0.0F : 2.0F, as_map ? 0.0F : 2.0F));
        EXPECT_TRUE(sut.IsUpdated());
    }
}

/// Stops whoever reads one page of a vector until the test lets it go on.
class GuardedPage
{
public:
    explicit GuardedPage(const std::vector<float>& values)
    {
        const auto page_size = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
        const auto begin = reinterpret_cast<std::uintptr_t>(values.data());
        s_page = reinterpret_cast<void*>((begin + page_size - 1) / page_size * page_size);
        s_page_size = page_size;
        if (static_cast<char*>(s_page) + page_size > reinterpret_cast<const char*>(values.data() + values.size())) {
            throw std::invalid_argument("The vector has no page of its own.");
        }
        s_is_reached.store(false);
        s_may_go_on.store(false);
        struct sigaction action
        {
        };
        action.sa_handler = &GuardedPage::OnFault;
        if (sigaction(SIGSEGV, &action, &m_old_action) != 0 || mprotect(s_page, page_size, PROT_NONE) != 0) {
            throw std::runtime_error("The page cannot be guarded.");
        }
    }
    ~GuardedPage()
    {
        mprotect(s_page, s_page_size, PROT_READ | PROT_WRITE);
        sigaction(SIGSEGV, &m_old_action, nullptr);
    }

    GuardedPage(const GuardedPage&) = delete;
    GuardedPage& operator=(const GuardedPage&) = delete;

    static void AwaitReached() { s_is_reached.wait(false); }
    static void LetGoOn() { s_may_go_on.store(true); }
    static bool IsReached() { return s_is_reached.load(); }

private:
    static void OnFault(int /*signal*/)
    {
        s_is_reached.store(true);
        s_is_reached.notify_all();
        while (!s_may_go_on.load()) {
        }
        mprotect(s_page, s_page_size, PROT_READ | PROT_WRITE);
    }

    inline static void* s_page = nullptr;
    inline static std::size_t s_page_size = 0;
    inline static std::atomic<bool> s_is_reached{false};
    inline static std::atomic<bool> s_may_go_on{false};
    static_assert(std::atomic<bool>::is_always_lock_free);

    struct sigaction m_old_action
    {
    };
};

TEST(DoubleBufferThreadTest, SetFillsTheWriteSideWithoutTheLock)
{
    const LogCapture log("ravelcore", log4cplus::INFO_LOG_LEVEL);
    constexpr int NUM_ELEMENTS = 65536;
    DoubleBuffer sut("parameters", NUM_ELEMENTS);
    sut.Set(std::vector<float>(NUM_ELEMENTS, 1.0F));
    const std::vector<float> next(NUM_ELEMENTS, 2.0F);
    std::vector<float> values(NUM_ELEMENTS);
    bool taken = false;
    {
        const GuardedPage page(next);
        const std::jthread reader([&] {
            GuardedPage::AwaitReached();  // the writer is in the middle of its copy
            taken = sut.TryRead(values);
            GuardedPage::LetGoOn();
        });
        sut.Set(next);
        EXPECT_TRUE(GuardedPage::IsReached());
    }
    EXPECT_TRUE(taken) << "the lock is free, and what was published before is still to be read";
    EXPECT_THAT(values, Each(1.0F));
    EXPECT_TRUE(sut.TryRead(values));
    EXPECT_THAT(values, Each(2.0F));
}

}  // namespace
}  // namespace lumo::ravelcore
