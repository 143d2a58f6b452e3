#pragma once

#include <string>

/// Names that the library, the controller application and its configuration share.
namespace lumo::ravelcore {

/// Configuration keys. Values are decimal integers, read as std::stoi reads them.
/// NUMA node of the matrix-vector worker; read by the application.
inline const std::string KEY_TASK_SGEMV_NUMA_NODE = "cfg.task_sgemv.numa_node";
/// Rows of the matrix of TaskSgemv; read by TaskSgemv::Configure.
inline const std::string KEY_TASK_SGEMV_NUM_ROWS = "cfg.task_sgemv.num_rows";
/// Columns of the matrix of TaskSgemv; read by TaskSgemv::Configure.
inline const std::string KEY_TASK_SGEMV_NUM_COLS = "cfg.task_sgemv.num_cols";
/// Number of position actuators; read by the application, which hands it to the constructor of TaskEdc.
inline const std::string KEY_TASK_EDC_NUM_PACT = "cfg.task_edc.num_pact";
/// Number of edge-sensor slots; read by the application, which hands it to the constructor of TaskEdc.
inline const std::string KEY_TASK_EDC_NUM_ES = "cfg.task_edc.num_es";
/// Modes per slice of the segment-control task; read by the application.
inline const std::string KEY_TASK_EDC_SLICE_SIZE = "cfg.task_edc.slice_size";

/// log4cplus logger names.
inline const std::string LOGGER_BRISK = "brisk";
inline const std::string LOGGER_BRISK_SM = "brisk.sm";
inline const std::string LOGGER_APP = "app";
inline const std::string LOGGER_RAVELCORE = "ravelcore";
inline const std::string LOGGER_EMPTY;

/// Topics of the data streams; the library only names them, the application publishes and subscribes.
inline const std::string TOPIC_SYNC = "LumoSync";
inline const std::string TOPIC_ES_MEAS = "LumoEsMeas";
inline const std::string TOPIC_PACT_MEAS = "LumoPactMeas";
inline const std::string TOPIC_ES_PACT_MEAS = "LumoEsPactMeas";
inline const std::string TOPIC_PACT_REF = "LumoPactRef";

}  // namespace lumo::ravelcore
