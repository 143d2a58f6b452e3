#include "support/edcRig.hpp"
#include "support/lockWatch.hpp"
#include "support/ramp.hpp"

#include <lumo/ravelcore/taskEdc.hpp>
#include <lumo/ravelcore/taskSgemv.hpp>

#include <gtest/gtest.h>

#include <mutex>
#include <shared_mutex>
#include <vector>

// What must not lock. This program has no BLAS (support/blasRecorder.hpp), whose own locks are no business of these
// tests.

namespace lumo::ravelcore {
namespace {

using test::EdcRig;
using test::LockWatch;
using test::Ramp;

TEST(LockWatchTest, CountsEachKindOfLock)
{
    std::mutex mutex;
    std::shared_mutex shared;
    const LockWatch sut;
    EXPECT_EQ(sut.GetCount(), 0);
    mutex.lock();
    mutex.unlock();
    EXPECT_EQ(sut.GetCount(), 1);
    shared.lock_shared();
    shared.unlock_shared();
    EXPECT_EQ(sut.GetCount(), 2);
    shared.lock();
    shared.unlock();
    EXPECT_EQ(sut.GetCount(), 3);
}

TEST(TaskLockTest, CycleOfTaskSgemvNeverLocks)
{
    TaskSgemv sut(3, 4);
    sut.Initialize();
    const LockWatch watch;
    for (int cycle = 0; cycle < 10; ++cycle) {
        sut.Execute(0.0, cycle == 0);
        sut.GetExecTime();
        sut.GetMaxExecTime();
    }
    EXPECT_EQ(watch.GetCount(), 0);
}

TEST(TaskLockTest, CycleOfTaskEdcNeverLocks)
{
    EdcRig rig(4, 5, 3, 6);
    rig.sut.m_pdc_mask[1] = true;
    rig.sut.m_fdc_mask[2] = true;
    rig.sut.m_feed_forward_enabled = true;
    rig.rec_in.Start(true, 0);
    rig.rec_out.Start(false, 0);  // gets full
    std::vector<float> pact = Ramp(4);
    const LockWatch watch;
    for (int cycle = 0; cycle < 10; ++cycle) {
        rig.sut.Execute(0.0, cycle == 0);
        rig.sut.CombinePactRef(pact);
    }
    EXPECT_EQ(watch.GetCount(), 0);
    EXPECT_FALSE(rig.rec_out.IsStarted());
}

}  // namespace
}  // namespace lumo::ravelcore
