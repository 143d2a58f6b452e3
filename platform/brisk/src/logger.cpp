#include <brisk/logger.hpp>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>

namespace brisk {

namespace {

// Each setting stands alone, and none hands over other data: relaxed is enough.
std::atomic<int> g_reporting_level{Logger::LEVEL_WARNING};
std::atomic<bool> g_console_output{true};
std::atomic<bool> g_remote_output{false};

static_assert(decltype(g_reporting_level)::is_always_lock_free && decltype(g_console_output)::is_always_lock_free);

std::string FormatLocalTime(std::chrono::system_clock::time_point now)
{
    // Cut off to microseconds before the split: a fraction that is rounded on its own could reach 1.000000.
    const auto since_epoch = std::chrono::floor<std::chrono::microseconds>(now.time_since_epoch());
    const auto seconds = std::chrono::floor<std::chrono::seconds>(since_epoch);
    const std::time_t time = seconds.count();
    std::tm local{};
    localtime_r(&time, &local);
    std::array<char, 64> date{};
    const std::size_t date_length = std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &local);
    std::array<char, 32> fraction{};
    const int fraction_length =
        std::snprintf(fraction.data(), fraction.size(), ".%06d", static_cast<int>((since_epoch - seconds).count()));
    return std::string(date.data(), date_length).append(fraction.data(), static_cast<std::size_t>(fraction_length));
}

}  // namespace

void Logger::SetReportingLevel(int level) noexcept
{
    g_reporting_level.store(level, std::memory_order_relaxed);
}
int Logger::GetReportingLevel() noexcept
{
    return g_reporting_level.load(std::memory_order_relaxed);
}

void Logger::SetConsoleOutput(bool enabled) noexcept
{
    g_console_output.store(enabled, std::memory_order_relaxed);
}
bool Logger::GetConsoleOutput() noexcept
{
    return g_console_output.load(std::memory_order_relaxed);
}

void Logger::SetRemoteOutput(bool enabled) noexcept
{
    g_remote_output.store(enabled, std::memory_order_relaxed);
}
bool Logger::GetRemoteOutput() noexcept
{
    return g_remote_output.load(std::memory_order_relaxed);
}

bool Logger::IsEnabled(int level) noexcept
{
    return GetReportingLevel() >= level && (GetConsoleOutput() || GetRemoteOutput());
}

void Logger::Write(std::string_view level_word, std::string_view position, std::string_view message)
{
    if (!GetConsoleOutput()) {
        return;
    }
    std::string line = FormatLocalTime(std::chrono::system_clock::now());
    line.append(" ").append(level_word).append(" ").append(position).append(" ").append(message).append("\n");
    // One call for the whole line: stdio holds the stream's lock meanwhile, so lines of several threads do not mix.
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fflush(stdout);
}

}  // namespace brisk
