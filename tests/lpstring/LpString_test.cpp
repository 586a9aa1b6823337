#include "lpstring/LpString.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cwctype>
#include <type_traits>
#include <utility>

#include "lpstring/qtTokenize.h"
#include "tests/support/Walk.h"

namespace {

using Texts = std::vector<qtString>;

template <class View, class... Separators>
auto Split(const View& source, const Separators&... separators) {
    std::vector<View> tokens(1, source);  // left from before
    LpTokenize(source, tokens, separators...);
    std::vector<decltype(source.ToString())> texts;
    for (const View& token : tokens) {
        texts.push_back(token.ToString());
    }
    return texts;
}

template <class Void, class Source, class... Separators>
constexpr bool compiles = false;
template <class Source, class... Separators>
constexpr bool compiles<
    std::void_t<decltype(LpTokenize(std::declval<Source>(), std::declval<std::vector<LpCString>&>(),
                                    std::declval<Separators>()...))>,
    Source, Separators...> = true;

// A view of a temporary string would dangle; separators are read within the call.
static_assert(!std::is_constructible_v<LpCString, qtString>);
static_assert(!std::is_constructible_v<LpCString, const std::string>);
static_assert(!std::is_convertible_v<qtWString, LpWString>);
static_assert(std::is_convertible_v<qtString&, LpCString>);
static_assert(std::is_convertible_v<const std::wstring&, LpWString>);
static_assert(!compiles<void, qtString> && !compiles<void, const qtString, qtString>);
static_assert(compiles<void, qtString&> && compiles<void, const char*, char>);
static_assert(compiles<void, const qtString&, qtString> && compiles<void, LpCString, qtString>);

// Any text of bytes, by any separators, fuzz/tokenize.cpp compares.
TEST(LpTokenize, SplitsAsDocumented) {
    EXPECT_EQ(Split(LpCString()), Texts{});
    EXPECT_EQ(Split(LpCString("  alpha  beta ")), (Texts{"alpha", "beta"}));
    EXPECT_EQ(Split(LpCString("a\xA0z")), (Texts{"a\xA0z"}));
    EXPECT_EQ(Split(LpCString("whole"), qtString()), Texts{"whole"});
    EXPECT_EQ(Split(LpCString(",a,,b,"), ','), (Texts{"a", "b"}));
    EXPECT_EQ(Split(LpCString("a\0b;c", 5), qtString("\0;", 2)), (Texts{"a", "b", "c"}));
    EXPECT_EQ(Split(LpCString(static_cast<const char*>(nullptr)), ' '), Texts{});
    EXPECT_EQ(Split(LpWString(L"a\x20AC"
                              L"b"),
                    L'\x20AC'),
              (std::vector<qtWString>{L"a", L"b"}));
    EXPECT_EQ(Split(LpWString(L"x\x20AC y\x2603z"), qtWString(L" \x2603")),
              (std::vector<qtWString>{L"x\x20AC", L"y", L"z"}));
}

// Texts are worked on in pieces of 2048 bytes and blocks of 64.
TEST(LpTokenize, TokensMayCrossAnyBoundary) {
    for (std::size_t start = 2040; start < 2060; ++start) {
        for (const std::size_t length : {1U, 7U, 64U, 2050U}) {
            qtString text(start, ' ');
            text += qtString(length, 'x') + qtString(2048 - length % 64, ',') + "y";
            EXPECT_EQ(Split(LpCString(text), qtString(" ,")), (Texts{qtString(length, 'x'), "y"}));
        }
    }
    qtString dense(2048, 'x');
    Texts expected{dense};
    for (int i = 0; i < 1024; ++i) {
        dense += " x";
        expected.push_back("x");
    }
    EXPECT_EQ(Split(LpCString(dense)), expected);
}

TEST(LpTokenize, FollowsTheLocaleOfTheThread) {
    qtWString wide;
    for (wchar_t c = 1; c < 0x3100; ++c) {
        wide += {L'x', c};
    }
    wide += {static_cast<wchar_t>(-1), static_cast<wchar_t>(0x7FFFFFFF)};
    const auto split = [&wide] {
        const auto tokens = Split(LpWString(wide));
        EXPECT_EQ(tokens, Walk(wide, [](wchar_t c) {
                      return std::iswspace(static_cast<std::wint_t>(c)) != 0;
                  }));
        return tokens.size();
    };
    const std::size_t plain = split();
    const locale_t unicode = newlocale(LC_ALL_MASK, "C.UTF-8", nullptr);
    if (unicode == nullptr) {
        GTEST_SKIP() << "the machine has no such locale";
    }
    const locale_t before = uselocale(unicode);
    EXPECT_GT(split(), plain);
    EXPECT_EQ(Split(LpCString("a\xC2\xA0z b")), (Texts{"a\xC2\xA0z", "b"}));
    uselocale(before);
    freelocale(unicode);
}

TEST(LpTokenize, SourceMayBeAnElementOfTheTokens) {
    std::vector<LpCString> tokens = {"one two three"};
    LpTokenize(tokens[0], tokens);
    ASSERT_EQ(tokens.size(), 3u);
    EXPECT_EQ(tokens[2].ToString(), "three");
}

TEST(qtTokenize, SplitsAsDocumented) {
    const auto split = [](const qtString& source, const qtString& separators) {
        Texts tokens = {"left from before"};
        qtTokenize(source, tokens, separators);
        return tokens;
    };
    EXPECT_EQ(split(",a,,b,", ","), (Texts{"a", "b"}));
    EXPECT_EQ(split(qtString("a b\0c d", 7), " "), (Texts{"a", "b"}));
    EXPECT_EQ(split("a b", qtString("\0 ", 2)), Texts{"a b"});
    EXPECT_EQ(split("whole \xFF", ""), Texts{"whole \xFF"});
    EXPECT_EQ(split("a\xFFz", "\xFF"), (Texts{"a", "z"}));
    EXPECT_EQ(split("", ""), Texts{});
}

}  // namespace
