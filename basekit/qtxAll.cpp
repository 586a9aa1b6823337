#include "basekit/qtxAll.h"

#include <algorithm>
#include <cstring>
#include <system_error>

qtxAll::qtxAll(unsigned long code, const char* text, unsigned long level)
    : errorCode(static_cast<std::uint32_t>(code)),
      errorLevel(static_cast<std::uint32_t>(level)),
      specificText(text) {}

qtxAll::qtxAll(const qtxAll& other) = default;
qtxAll& qtxAll::operator=(const qtxAll& other) = default;
qtxAll::~qtxAll() = default;

void qtxAll::ErrorCode(unsigned long code) {
    errorCode = static_cast<std::uint32_t>(code);
}

unsigned long qtxAll::ErrorCode() const {
    return errorCode;
}

void qtxAll::ErrorLevel(unsigned long level) {
    errorLevel = static_cast<std::uint32_t>(level);
}

unsigned long qtxAll::ErrorLevel() const {
    return errorLevel;
}

const char* qtxAll::BaseString() const {
    return "qtxAll";
}

const char* qtxAll::LevelString() const {
    switch (errorLevel) {
        case 1:
            return "error";
        case 2:
            return "severe error";
        default:
            return "unknown level";
    }
}

qtString qtxAll::ErrorString() const {
    return ErrorLine("");
}

// Run-time type information puts the length before a name: "5Hpack".
static const char* WithoutLength(const char* name) {
    const char* const start = name + std::strspn(name, "0123456789");
    return *start == '\0' ? name : start;
}

qtString qtxAll::ErrorLine(const qtString& identity) const {
    qtString line(WithoutLength(BaseString()));
    line += ": ";
    line += LevelString();
    line += " (" + identity + (identity.empty() ? "" : ", ") + "code " + std::to_string(errorCode) +
            ", level " + std::to_string(errorLevel) + ")";
    // Texts may end in a line feed, and file names may have one inside.
    qtString text(SpecificString());
    text.TrimWhiteSpace();
    if (!text.empty()) {
        line += ": " + text;
    }
    if (systemNumber != 0) {
        line += ": " + std::generic_category().message(systemNumber);
    }
    if (!fileName.empty()) {
        line += " [" + fileName + ":" + std::to_string(fileLine) + "]";
    }
    std::replace_if(
        line.begin(), line.end(), [](char byte) { return byte == '\r' || byte == '\n'; }, ' ');
    return line;
}

const char* qtxAll::SpecificString() const {
    return specificText.c_str();
}

void qtxAll::SetFileInfo(const char* file, int line, const char* date, const char* time) {
    fileName = file;
    fileLine = line;
    buildDate = date;
    buildTime = time;
}
