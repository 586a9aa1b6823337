#include "system/SystemError.h"

namespace vantry_internal {

SystemError::SystemError(int error, std::string_view action, std::string_view path)
    : SystemError(error, action, path, std::generic_category().message(error)) {}

SystemError::SystemError(int error, std::string_view action, std::string_view path,
                         const std::string& reason)
    : std::system_error(error, std::generic_category()), text(action) {
    pathAt = action.size() + 1;
    text.append(" ").append(path).append(": ").append(reason);
    reasonAt = text.size() - reason.size();
}

}  // namespace vantry_internal
