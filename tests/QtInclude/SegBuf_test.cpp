#include "QtInclude/SegBuf.h"

#include <utility>

#include "tests/support/Errors.h"

namespace {

using Piece = std::pair<const char*, unsigned int>;

Piece Locate(const SegBuf& buffer, unsigned int offset, unsigned int end) {
    char* where = nullptr;
    unsigned int length = 0;
    buffer.Locate(offset, end, where, length);
    return {where, length};
}

TEST(SegBuf, LocatesRunsWithinSegments) {
    SegBuf buffer;
    EXPECT_THROW(Locate(buffer, 0, 0), qtxSegBuf);
    buffer.Grow(40000);
    ASSERT_EQ(buffer.segments.size(), 3u);
    const char* const* const segments = buffer.segments.data();
    EXPECT_EQ(Locate(buffer, 0, 40000), Piece(segments[0], 16360));
    EXPECT_EQ(Locate(buffer, 16360, 40000), Piece(segments[1], 16360));
    EXPECT_EQ(Locate(buffer, 32720, 40000), Piece(segments[2], 7280));
    EXPECT_EQ(Locate(buffer, 16359, 16360), Piece(segments[0] + 16359, 1));
    EXPECT_EQ(Locate(buffer, 16355, 16365), Piece(segments[0] + 16355, 5));
    EXPECT_EQ(Locate(buffer, 39999, 40000), Piece(segments[2] + 7279, 1));
    ExpectThrow<qtxSegBuf>([&] { Locate(buffer, 40000, 40001); }, "qtxSegBuf",
                           "Locate error in SegBuf", 9, 2, "QtInclude/SegBuf.cpp");
}

TEST(SegBuf, GrowsBySegmentsAndNeverShrinks) {
    const std::tuple<unsigned int, unsigned int, std::size_t, unsigned int> cases[] = {
        {16360, 0, 1, 16360}, {16361, 0, 2, 16361}, {16360, 1, 2, 16361}, {0, 0, 0, 0}};
    for (const auto& [length, reserve, segments, size] : cases) {
        SegBuf buffer;
        buffer.reserve = reserve;
        buffer.Grow(length);
        EXPECT_EQ(std::pair(buffer.segments.size(), buffer.size), std::pair(segments, size));
    }
    SegBuf buffer;
    buffer.Grow(50);
    const char* const first = buffer.segments[0];
    buffer.Grow(10);
    EXPECT_EQ(buffer.size, 50u);
    buffer.Grow(20000);
    EXPECT_EQ(buffer.segments[0], first);
    buffer.reserve = 0xFFFFFFFF;
    EXPECT_THROW(buffer.Grow(1), std::bad_alloc);
    EXPECT_EQ(std::pair(buffer.segments.size(), buffer.size), std::pair(std::size_t{2}, 20000U));
}

}  // namespace
