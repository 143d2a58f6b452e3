#include "exceptionText.hpp"

#include "demangle.hpp"

#include <brisk/exception.hpp>

#include <exception>
#include <typeinfo>

namespace brisk {

std::string DescribeCurrentException()
{
    try {
        throw;
    } catch (const Exception& exception) {
        std::string text = exception.GetTypeName() + " \"" + exception.GetMessage() + "\"";
        if (!exception.GetFileName().empty()) {
            text += " from " + exception.GetFunctionName() + " at " + exception.GetFileName() + ":" +
                    std::to_string(exception.GetLineNumber());
        }
        return text;
    } catch (const std::exception& exception) {
        return Demangle(typeid(exception).name()) + " \"" + exception.what() + "\"";
    } catch (...) {
        return "an exception that is not derived from std::exception";
    }
}

}  // namespace brisk
