#include "tools/hpk/SourceOptions.h"

#include "tools/common/Failures.h"
#include "tools/hpk/InputText.h"

namespace vantry_tools {

void SourceOptions::AddTo(CLI::App& command) {
    command.add_option("PATH", paths, "Folders and files to pack")->type_name("");
    command
        .add_option("--exclude", rules.excluded,
                    "Leave out keys, or file and folder names, that match")
        ->allow_extra_args(false)
        ->type_name("GLOB");
    CLI::Option* const from =
        command
            .add_option("--files-from", list,
                        "Pack also the paths in FILE, a line each; - is stdin")
            ->type_name("FILE");
    command.add_flag("-0,--null", hasNul, "The paths in FILE end with NUL")->needs(from);
    command.add_flag("--paths", rules.keepsPaths, "Keys are the paths as given");
}

std::vector<std::string> SourceOptions::Paths(bool isRequired) const {
    std::vector<std::string> all = paths;
    if (!list.empty()) {
        const std::string text = ReadInputText(list);
        const char end = hasNul ? '\0' : '\n';
        for (std::size_t at = 0; at < text.size();) {
            const std::size_t next = std::min(text.find(end, at), text.size());
            if (next != at) {
                all.push_back(text.substr(at, next - at));
            }
            at = next + 1;
        }
    } else if (isRequired && paths.empty()) {
        throw UsageFailure("PATH is required");
    }
    return all;
}

}  // namespace vantry_tools
