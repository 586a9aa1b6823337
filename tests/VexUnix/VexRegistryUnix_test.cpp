#include "VexUnix/VexRegistryUnix.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <new>
#include <vector>

#include "basekit/Trace.h"
#include "basekit/qtEncryptor.h"
#include "tests/support/Allocations.h"
#include "tests/support/TemporaryRegistry.h"

namespace {

namespace fs = std::filesystem;

class VexRegistryUnixTest : public TemporaryRegistry {
protected:
    VexRegistryUnixTest() {
        SetTraceSink([](const Trace_file& file, int line, const char* text) {
            EXPECT_EQ(file.Subsystem(), 9);
            EXPECT_STREQ(file.Path(), "VexUnix/VexRegistryUnix.cpp");
            EXPECT_GT(line, 0);
            traced.push_back(text);
        });
        traced.clear();
    }
    ~VexRegistryUnixTest() override { SetTraceSink(nullptr); }

    static std::vector<std::string> traced;
};

std::vector<std::string> VexRegistryUnixTest::traced;

using Setter = int (*)(char*, unsigned long, unsigned char*, unsigned long);
using Getter = int (*)(char*, unsigned char*, unsigned long*);

TEST_F(VexRegistryUnixTest, ParametersOfEverySection) {
    struct {
        std::string section;
        Setter set;
        Getter get;
    } const sections[] = {{"DB_Monitor", SetDbMonitorRegParam, GetDbMonitorRegParam},
                          {"Trace", SetTraceRegParam, GetTraceRegParam},
                          {"Pop", SetPopRegParam, GetPopRegParam}};
    char name[] = "a/b";
    unsigned char value[] = {'x', '\0', 0xFF};
    Records model;
    for (const auto& [section, set, get] : sections) {
        traced.clear();
        unsigned char buffer[8];
        unsigned long length = 8;
        EXPECT_EQ(get(name, buffer, &length), -1);
        EXPECT_EQ(length, 8u);
        EXPECT_EQ(set(name, 1, value, 3), 0);
        model[section + "/a/b"] = std::string("x\0\xFF", 3);
        EXPECT_EQ(ReadAll(), model);
        for (const unsigned long capacity : {0ul, 2ul, 3ul, 4ul, 8ul}) {
            std::memset(buffer, '#', sizeof buffer);
            length = capacity;
            EXPECT_EQ(get(name, buffer, &length), capacity < 3 ? -1 : 0);
            EXPECT_EQ(length, capacity < 3 ? 3 : capacity);
            std::string expected(8, '#');
            if (capacity >= 3) {
                expected.replace(0, 4, capacity == 3 ? "x\0\xFF#" : "x\0\xFF\0", 4);
            }
            EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), 8), expected);
        }
        EXPECT_EQ(traced,
                  (std::vector<std::string>{"cannot read key " + section + "/a/b",
                                            "insufficient space in output buffer (need 3 bytes)",
                                            "insufficient space in output buffer (need 3 bytes)"}));
    }
    EXPECT_EQ(SetPopRegParam(name, 0, nullptr, 0), 0);
    unsigned char byte = '#';
    unsigned long length = 0;
    for (; length < 2; ++length) {
        EXPECT_EQ(GetPopRegParam(name, &byte, &length), 0);
        EXPECT_EQ(byte, length == 0 ? '#' : '\0');
    }

    traced.clear();
    Use("/dev/null/registry");
    EXPECT_EQ(SetPopRegParam(name, 0, value, 3), -1);
    EXPECT_EQ(GetPopRegParam(name, value, &length), -1);
    EXPECT_EQ(traced,
              (std::vector<std::string>{"cannot write key Pop/a/b", "cannot read key Pop/a/b"}));
}

class CvexRegEditTest : public TemporaryRegistry {
protected:
    void Expect(bool result, bool expected, const std::string& message) {
        EXPECT_EQ(result, expected);
        EXPECT_EQ(editor.m_strMessage, message);
    }

    void Import(const std::string& text, bool expected, const std::string& message,
                const Records& records) {
        fs::remove(database);
        WriteFile(folder / "in", text);
        Expect(editor.Import((folder / "in").c_str()), expected, message);
        UnixRegistry store;
        Records found;
        EXPECT_EQ(store.Open(false) && ReadAll(found, store), !records.empty());
        EXPECT_EQ(found, records) << text;
    }

    CvexRegEdit editor;
};

TEST_F(CvexRegEditTest, WithoutARegistryNothingWorks) {
    Use("/dev/null/registry");
    CvexRegEdit closed;
    EXPECT_EQ(closed.m_strMessage, "");
    const std::string file = (folder / "out").string();
    const std::function<bool()> operations[] = {
        [&] { return closed.Set("a", "b"); }, [&] { return closed.Get("a"); },
        [&] { return closed.SetPassword("p", nullptr); },
        [&] { return closed.Export(file.c_str()); }, [&] { return closed.Import(file.c_str()); }};
    for (const auto& operation : operations) {
        closed.m_strMessage.clear();
        EXPECT_FALSE(operation());
        EXPECT_EQ(closed.m_strMessage, "can't open DB");
    }
    EXPECT_FALSE(fs::exists(file));
}

// The rest of what is set and shown, vexreg's tests tell.
TEST_F(CvexRegEditTest, ShowsAnyBytes) {
    ASSERT_TRUE(Set("Pop/Greeting", std::string("\0 x", 3)) && Set("empty", ""));
    Expect(editor.Get("Pop/Greeting"), true,
           "key: Pop/Greeting   Value: " + std::string("\0 x", 3));
    Expect(editor.Get("empty"), true, "key: empty   Value: ");
}

TEST_F(CvexRegEditTest, TheMessageMayNameTheKesh) {
    editor.m_strMessage = "main";
    Expect(editor.SetPassword("p", editor.m_strMessage.c_str()), false,
           "Kesh main does not exist. Can not set password");
}

TEST_F(CvexRegEditTest, NoPasswordIsLeftWhereMemoryEnds) {
    static const std::string password(100, '#');
    static int leaks;
    leaks = 0;
    bool stored = false;
    for (long allocations = 0; !stored && allocations < 1000; ++allocations) {
        Allocations::onDelete = [](const void* block) {
            const bool fits = malloc_usable_size(const_cast<void*>(block)) >= password.size();
            leaks += fits && std::memcmp(block, password.data(), password.size()) == 0;
        };
        Allocations::untilFailure = allocations;
        try {
            stored = editor.SetPassword(password.c_str(), nullptr);
        } catch (const std::bad_alloc&) {
        }
        stored = stored && Allocations::untilFailure >= 0;
        Allocations::untilFailure = -1;
        Allocations::onDelete = nullptr;
    }
    EXPECT_EQ(leaks, 0);
    EXPECT_EQ(qtEncryptor().Decrypt(ReadAll()["LogonDatabaseParam"]), password);
}

TEST_F(CvexRegEditTest, ExportsAllButPasswords) {
    const std::string out = folder / "out";
    ASSERT_TRUE(Set("LogonDatabaseParam", "1") && Set("DatabaseParam", "2"));
    ASSERT_TRUE(Set("", "v") && Set("DatabaseParams", "") && Set("atabaseParam", ""));
    Expect(editor.Export(out.c_str()), true, "exported 3 keys");
    const std::string text = FileBytes(out);
    EXPECT_EQ(text.size(), std::strlen(" v\nDatabaseParams \natabaseParam \n"));
    for (const char* line : {" v\n", "DatabaseParams \n", "atabaseParam \n"}) {
        EXPECT_NE(text.find(line), std::string::npos);
    }
    Expect(editor.Export("/dev/null/x"), false, "can't open file /dev/null/x");
    EXPECT_TRUE(CvexRegEdit::IsPasswordKey("DatabaseParam"));
    EXPECT_FALSE(CvexRegEdit::IsPasswordKey("DatabaseParams"));
    EXPECT_EQ(CvexRegEdit::PasswordKey("k"), "Logon/Keshs/k/DatabaseParam");
    Expect(editor.Export("/dev/full"), true, "exported 3 keys");

    ::testing::internal::CaptureStdout();
    Expect(editor.Export(nullptr), true, "exported 3 keys");
    std::puts("still open");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), text + "still open\n");
}

// Neither a database that cannot be opened again nor one that cannot be read costs the former file.
TEST_F(CvexRegEditTest, ExportsWhatIsOpenOrNothing) {
    const std::string out = folder / "out";
    ASSERT_TRUE(Set("a", "b"));
    Expect(editor.Get("a"), true, "key: a   Value: b");
    WriteFile(folder / "garbage", "garbage");
    fs::copy_file(database, folder / "good");
    fs::rename(folder / "garbage", database);
    Expect(editor.Get("a"), true, "key: a   Value: b");
    WriteFile(out, "former");
    Expect(editor.Export(out.c_str()), true, "exported 1 keys");
    EXPECT_EQ(FileBytes(out), "a b\n");

    std::string damaged = FileBytes(folder / "good");
    damaged[damaged.size() - 1] ^= 1;
    damaged[damaged.size() - 1025] ^= 1;
    WriteFile(database, damaged);
    Expect(editor.Export(out.c_str()), false, "can't read DB");
    EXPECT_EQ(FileBytes(out), "a b\n");
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 3);
}

TEST_F(CvexRegEditTest, Imports) {
    using namespace std::string_literals;
    const std::string in = (folder / "in").string();
    Expect(editor.Import(in.c_str()), false, "can't read file " + in);
    Import("", false, "can't read file " + in, {});
    Import("\r\n\n", true, "Imported 0 lines", {});
    Import("\n\na\t\v 1\r\r\nb \nc\nd\f2 \t3 \r\n\xA0 \xA0", true, "Imported 5 lines",
           {{"a", "1"}, {"b", ""}, {"c", ""}, {"d", "2 \t3"}, {"\xA0", "\xA0"}});
    Import("a 1\na 2\nLogonDatabaseParam x\n", true, "Imported 3 lines",
           {{"a", "2"}, {"LogonDatabaseParam", "x"}});
    Import("a 1\0\nb 2\n"s, true, "Imported 1 lines", {{"a", "1"}});
    Import("a 1\nb 2\n c \nd 4\n", false, "invalid line:  c ", {{"a", "1"}, {"b", "2"}});
    Import(" \na 1\n", false, "invalid line:  ", {});

    ASSERT_TRUE(Set("a", "before"));
    WriteFile(in, "a  1\nb 2\n c\n");
    fs::remove(database.string() + ".lock");
    fs::create_directory(database.string() + ".lock");
    Expect(editor.Import(in.c_str()), false, "Cannot import line: a  1");
    EXPECT_EQ(ReadAll(), (Records{{"a", "before"}}));
}

}  // namespace
