#include "basekit/qtxAll.h"

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
    qtString line(BaseString());
    line += ": ";
    line += LevelString();
    line += " (code " + std::to_string(errorCode) + ", level " + std::to_string(errorLevel) + ")";
    const char* const text = SpecificString();
    if (*text != '\0') {
        line += ": ";
        line += text;
    }
    if (!fileName.empty()) {
        line += " [" + fileName + ":" + std::to_string(fileLine) + "]";
    }
    // Texts may end in a line feed or hold a file name that has one; this is one line.
    for (std::size_t at; (at = line.find_first_of("\r\n")) != qtString::npos;) {
        line.replace(at, 1, at + 1 == line.size() ? "" : " ");
    }
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
