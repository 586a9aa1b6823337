#include "hpack/ReadPastEnd.h"

#include <vector>

namespace vantry_internal {

void ReadPastEnd(Generic32& stream) {
    std::vector<char> piece(65536);
    const auto length = static_cast<unsigned int>(piece.size());
    const unsigned int left = stream.GetFileSize() - stream.Tell();
    for (unsigned int read = 0; read <= left; read += length) {
        stream.Read(piece.data(), length);
    }
    // The stream has grown in the meantime.
    throw qtX<HioErr>((HioErrors::readFailed + stream.Name()).c_str(), HioErrors::read,
                      stream.Name());
}

}  // namespace vantry_internal
