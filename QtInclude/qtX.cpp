#include "QtInclude/qtX.h"

#include <algorithm>
#include <cstring>

qtXbase::qtXbase(const char* text) : qtxAll(2, text, 1) {
    const std::size_t length = std::min(std::strlen(text), sizeof message - 1);
    std::memcpy(message, text, length);
    std::memset(message + length, 0, sizeof message - length);
}

qtXbase::qtXbase(const qtXbase& other) = default;
qtXbase& qtXbase::operator=(const qtXbase& other) = default;
qtXbase::~qtXbase() = default;

const char* qtXbase::BaseString() const {
    return "qtXbase";
}

StringProxy::StringProxy(const qtString& text) : string(text) {}
StringProxy::~StringProxy() = default;
StringProxy::StringProxy(const StringProxy& other) = default;
StringProxy& StringProxy::operator=(const StringProxy& other) = default;
