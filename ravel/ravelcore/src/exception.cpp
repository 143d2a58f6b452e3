#include <lumo/ravelcore/exception.hpp>

#include <boost/core/demangle.hpp>
#include <boost/filesystem/path.hpp>

#include <list>
#include <string>
#include <typeinfo>

namespace lumo::ravelcore {

brisk::Exception CreateExceptionObject(int /*code*/, const std::string& file, int line, const std::string& function,
                                       const std::string& message)
{
    brisk::Exception exception(message);
    exception.SetFileName(boost::filesystem::path(file).filename().string());
    exception.SetFunctionName(function);
    exception.SetLineNumber(line);
    exception.SetClassName(boost::core::demangle(typeid(brisk::Exception).name()));
    exception.SetExceptionStack(std::list<std::string>{exception.GetTypeName()});
    return exception;
}

}  // namespace lumo::ravelcore
