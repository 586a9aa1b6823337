#include "basekit/qtString.h"

void qtString::TrimWhiteSpace() {
    static constexpr const char* whiteSpace = " \t\n\v\f\r";
    const size_type last = find_last_not_of(whiteSpace);
    if (last == npos) {
        clear();
        return;
    }
    erase(last + 1);
    erase(0, find_first_not_of(whiteSpace));
}
