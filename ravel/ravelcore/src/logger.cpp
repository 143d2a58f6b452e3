#include <lumo/ravelcore/logger.hpp>
#include <lumo/ravelcore/names.hpp>

namespace lumo::ravelcore {

log4cplus::Logger& GetLogger()
{
    static log4cplus::Logger logger = log4cplus::Logger::getInstance(LOGGER_RAVELCORE);
    return logger;
}

std::string EntryLineText(const char* file, const char* function, int line)
{
    return std::string(file) + ' ' + function + ' ' + std::to_string(line);
}

}  // namespace lumo::ravelcore
