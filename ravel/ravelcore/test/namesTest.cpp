#include <lumo/ravelcore/names.hpp>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace lumo::ravelcore {
namespace {

// Configuration files, log configurations and other programs hold these texts: none may change.

TEST(NamesTest, ConfigurationKeysAreTheOnesInConfigurationFiles)
{
    EXPECT_EQ(KEY_TASK_SGEMV_NUMA_NODE, "cfg.task_sgemv.numa_node");
    EXPECT_EQ(KEY_TASK_SGEMV_NUM_ROWS, "cfg.task_sgemv.num_rows");
    EXPECT_EQ(KEY_TASK_SGEMV_NUM_COLS, "cfg.task_sgemv.num_cols");
    EXPECT_EQ(KEY_TASK_EDC_NUM_PACT, "cfg.task_edc.num_pact");
    EXPECT_EQ(KEY_TASK_EDC_NUM_ES, "cfg.task_edc.num_es");
    EXPECT_EQ(KEY_TASK_EDC_SLICE_SIZE, "cfg.task_edc.slice_size");
}

TEST(NamesTest, LoggerNamesAreTheOnesInLogConfigurations)
{
    EXPECT_EQ(LOGGER_BRISK, "brisk");
    EXPECT_EQ(LOGGER_BRISK_SM, "brisk.sm");
    EXPECT_EQ(LOGGER_APP, "app");
    EXPECT_EQ(LOGGER_RAVELCORE, "ravelcore");
    EXPECT_EQ(LOGGER_EMPTY, "");
}

TEST(NamesTest, TopicsAreTheOnesThatSubscribersUse)
{
    EXPECT_EQ(TOPIC_SYNC, "LumoSync");
    EXPECT_EQ(TOPIC_ES_MEAS, "LumoEsMeas");
    EXPECT_EQ(TOPIC_PACT_MEAS, "LumoPactMeas");
    EXPECT_EQ(TOPIC_ES_PACT_MEAS, "LumoEsPactMeas");
    EXPECT_EQ(TOPIC_PACT_REF, "LumoPactRef");
}

const std::string early_key = KEY_TASK_SGEMV_NUM_ROWS;  // made before main, as an application's own constants may be

TEST(NamesTest, AreThereForOtherConstantsMadeBeforeMain)
{
    EXPECT_EQ(early_key, "cfg.task_sgemv.num_rows");
}

}  // namespace
}  // namespace lumo::ravelcore
