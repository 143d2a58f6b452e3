#include "cycleThread.hpp"

#include <utility>

namespace lumo::ravelctl {

namespace {

/// Sets it when it goes, also when an exception passes.
class EndMark
{
public:
    explicit EndMark(std::atomic<bool>& ended) : m_ended(ended) {}
    ~EndMark() { m_ended.store(true); }

    EndMark(const EndMark&) = delete;
    EndMark& operator=(const EndMark&) = delete;

private:
    std::atomic<bool>& m_ended;
};

}  // namespace

CycleThread::CycleThread(const ravelctl::Placement& placement, Work work)
    : ConfigurablePthreadActivity("cycle", placement.cpu, placement.priority), m_work(std::move(work))
{
}

CycleThread::~CycleThread()
{
    stop(nullptr);
    JoinThread();
}

void CycleThread::Run()
{
    const EndMark mark(m_ended);
    TouchOwnStack();
    m_place = FindOwnPlace();
    const std::int64_t faults_before = CountOwnPageFaults();
    m_work([this] { return IsStopRequested(); });
    m_page_faults = CountOwnPageFaults() - faults_before;
}

}  // namespace lumo::ravelctl
