#include "hpack/Generic32.h"

template class qtX<HioErr>;

Generic32::Generic32() = default;
Generic32::~Generic32() noexcept(false) = default;

unsigned int Generic32::Tell() {
    return 0;
}

void Generic32::Seek(int /*offset*/) {}

unsigned int Generic32::SeekEnd() {
    return 0;
}

unsigned int Generic32::GetFileSize() {
    return 0;
}

void Generic32::Write(char* /*data*/, unsigned int /*count*/) {}

void Generic32::Read(char* /*data*/, unsigned int /*count*/) {}

void Generic32::Close() {}

void Generic32::Fail(HioErrors::Number number, const char* text) const {
    throw qtX<HioErr>(text, number, name);
}
