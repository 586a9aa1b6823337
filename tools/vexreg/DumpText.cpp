#include "tools/vexreg/DumpText.h"

#include "tools/common/Failures.h"
#include "tools/common/KeyText.h"

namespace vantry_tools {

static constexpr std::string_view firstLine = "# vexreg dump 1";
static constexpr std::string_view lastLine = "# end";

std::string DumpRecords(const Records& records) {
    std::string text(firstLine);
    text += '\n';
    for (const auto& [key, value] : records) {
        text += QuoteKey(key) + '\t' + QuoteKey(value) + '\n';
    }
    return text.append(lastLine) + '\n';
}

static void ParseLine(std::string_view line, Records& records) {
    const std::size_t tab = line.find('\t');
    if (tab == std::string_view::npos) {
        if (!line.empty() && line.front() != '#') {
            throw UsageFailure("no tab between key and value");
        }
        return;
    }
    const std::string key = UnquoteKey(line.substr(0, tab));
    if (!records.emplace(key, UnquoteKey(line.substr(tab + 1))).second) {
        throw UsageFailure("duplicate key");
    }
}

Records ParseDump(const std::string& text, const std::string& shown) {
    Records records;
    std::size_t number = 0;
    std::string_view last;
    for (std::string_view rest = text; !rest.empty(); ++number) {
        const std::size_t end = rest.find('\n');
        last = rest.substr(0, end);
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
        if (number == 0 && last != firstLine) {
            break;
        }
        try {
            ParseLine(last, records);
        } catch (const UsageFailure& error) {
            throw ToolFailure(shown + ":" + std::to_string(number + 1) + ": " + error.what());
        }
    }
    if (number == 0) {
        throw ToolFailure(shown + ": not written by \"vexreg dump\"");
    }
    if (last != lastLine) {
        throw ToolFailure(shown + ": the end is missing");
    }
    return records;
}

}  // namespace vantry_tools
