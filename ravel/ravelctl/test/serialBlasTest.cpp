#include "error.hpp"
#include "support/countingTask.hpp"
#include "support/quietLog.hpp"
#include "support/thrown.hpp"
#include "support/workerThreads.hpp"
#include "workerGroup.hpp"

#include <cblas.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

// In a program of its own, which answers for the BLAS: it claims to be the serial build.
int openblas_get_parallel(void)
{
    return OPENBLAS_SEQUENTIAL;
}

namespace lumo::ravelctl {
namespace {

using test::CountWorkerThreads;
using test::MakeGroup;
using test::Tasks;

TEST(SerialBlasTest, SeveralWorkersAreRefusedBeforeAThreadIsStarted)
{
    Tasks tasks(2);
    tasks.all[0]->fails_in_initialize = true;  // which would be the reason if a worker came that far
    const auto sut = MakeGroup(tasks.Get(), std::chrono::minutes(1));
    const std::string line = test::ThrownLine<InputError>([&] { sut->Start(); });
    EXPECT_THAT(line, testing::HasSubstr("the serial build of OpenBLAS is loaded"));
    EXPECT_EQ(CountWorkerThreads(), 0);
    EXPECT_EQ(sut->GetNumWorkers(), 2);
}

TEST(SerialBlasTest, OneWorkerMayCallIt)
{
    test::QuietLog();
    Tasks tasks(1);
    const auto sut = MakeGroup(tasks.Get(), std::chrono::minutes(1));
    sut->Start();
    EXPECT_EQ(CountWorkerThreads(), 1);
    tasks.gate.Open();
    sut->Stop(true);
}

TEST(SerialBlasTest, ItIsDescribedAsSuch)
{
    EXPECT_THAT(DescribeBlas(), testing::HasSubstr("(serial build, "));
}

}  // namespace
}  // namespace lumo::ravelctl
