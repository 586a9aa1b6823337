#include "tools/common/Failures.h"

#include <cerrno>
#include <cstdio>
#include <new>

#include "basekit/qtxAll.h"
#include "tools/common/PrintableText.h"

namespace vantry_tools {

void PrintError(std::string_view text) {
    const std::string line =
        std::string(program_invocation_short_name) + ": " + PrintableText(text) + '\n';
    std::fflush(stdout);
    std::fwrite(line.data(), 1, line.size(), stderr);
}

std::string DescribeException() {
    try {
        throw;
    } catch (const qtxAll& error) {
        const char* const text = error.SpecificString();
        return *text != 0 ? std::string(text) : std::string(error.ErrorString());
    } catch (const std::bad_alloc&) {
        return "out of memory";
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "unknown error";
    }
}

}  // namespace vantry_tools
