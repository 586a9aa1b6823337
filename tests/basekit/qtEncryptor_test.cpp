#include "basekit/qtEncryptor.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <vector>

#include "tests/support/Errors.h"
#include "tests/support/Processes.h"
#include "tests/support/TemporaryRegistry.h"

namespace {

using qtEncryptorTest = TemporaryRegistry;
namespace fs = std::filesystem;

TEST_F(qtEncryptorTest, DecryptsWhatItEncryptedAndNothingElse) {
    EXPECT_THROW(qtEncryptor().Decrypt("no key yet"), qtxAll);
    const qtString all = AllBytes();
    for (const qtString& plain : {qtString(), qtString("secret"), all}) {
        const qtString encrypted = qtEncryptor().Encrypt(plain);
        EXPECT_EQ(encrypted.size(), plain.size() + 40);
        EXPECT_NE(encrypted, qtEncryptor().Encrypt(plain)) << "each time another nonce";
        EXPECT_EQ(qtEncryptor().Decrypt(encrypted), plain);
        for (std::size_t i = 0; i < encrypted.size(); ++i) {
            qtString altered = encrypted;
            altered[i] ^= 1;
            EXPECT_THROW(qtEncryptor().Decrypt(altered), qtxEncryptor);
            EXPECT_THROW(qtEncryptor().Decrypt(encrypted.substr(0, i)), qtxEncryptor);
        }
    }

    const fs::path key = fs::path(database).replace_extension(".key");
    EXPECT_EQ(fs::status(key).permissions(), fs::perms(0600));
    const qtString encrypted = qtEncryptor().Encrypt("secret");
    const std::string bytes = FileBytes(key);
    for (const std::string& other : {std::string(32, 'k'), bytes.substr(1), bytes + "x"}) {
        WriteFile(key, other);
        EXPECT_THROW(qtEncryptor().Decrypt(encrypted), qtxEncryptor);
    }
    EXPECT_THROW(qtEncryptor().Encrypt("secret"), qtxEncryptor) << "no key is ever replaced";
    fs::remove(key);
    fs::create_directories(key / "in the way");
    ExpectThrow<qtxEncryptor>([] { qtEncryptor().Encrypt("secret"); }, "qtxEncryptor",
                              "Cannot use key file " + key.string() + ": Is a directory", 11, 1,
                              "basekit/qtEncryptor.cpp");
}

TEST_F(qtEncryptorTest, RefusesAKeyThatOthersMayKnow) {
    const qtString encrypted = qtEncryptor().Encrypt("secret");
    const fs::path key = fs::path(database).replace_extension(".key");
    const auto refusal = [&] {
        try {
            qtEncryptor().Decrypt(encrypted);
            return std::string();
        } catch (const qtxEncryptor& error) {
            return std::string(error.SpecificString());
        }
    };
    for (const unsigned mode : {0640u, 0620u, 0604u, 0602u}) {
        fs::permissions(key, fs::perms(mode));
        EXPECT_EQ(refusal(), "Cannot use key file " + key.string() +
                                 ": others may read or write it; its mode must be 0600");
    }
    fs::permissions(key, fs::perms(0400));
    EXPECT_EQ(refusal(), "");
    if (geteuid() == 0) {
        ASSERT_EQ(chown(key.c_str(), 1000, 1000), 0);
        EXPECT_EQ(refusal(),
                  "Cannot use key file " + key.string() + ": it belongs to another user");
        ASSERT_TRUE(Set("a", "b"));
        ASSERT_EQ(chown(database.c_str(), 1000, 1000), 0);
        EXPECT_EQ(refusal(), "") << "root works for the owner of the registry";
        fs::remove(key);
        qtEncryptor().Encrypt("secret");
        struct stat status {};
        ASSERT_EQ(stat(key.c_str(), &status), 0);
        EXPECT_EQ(status.st_uid, 1000u);
    }
    fs::remove(key);
    ASSERT_EQ(mkfifo(key.c_str(), 0600), 0);
    EXPECT_EQ(refusal(), "Cannot use key file " + key.string() + ": not a regular file");
}

// Whether the part of the stack that a call has just left holds the bytes.
[[gnu::noinline]] bool StackHolds(const std::string& bytes) {
    char left[16384];
    asm volatile("" : : "r"(left) : "memory");
    return memmem(left, sizeof left, bytes.data(), bytes.size()) != nullptr;
}

TEST_F(qtEncryptorTest, LeavesNoSecretInMemory) {
    const qtEncryptor encryptor;
    const qtString plain = "secret";
    encryptor.Encrypt(plain);
    const std::string key = FileBytes(fs::path(database).replace_extension(".key")).substr(8);
    const qtString encrypted = encryptor.Encrypt(plain);
    const bool held = StackHolds(key);  // nothing may use the stack in between
    EXPECT_FALSE(held);

    qtString text(100, 's');
    text.resize(3);
    const std::size_t capacity = text.capacity();
    const char* const bytes = text.data();
    qtEncryptor::Wipe(text);
    EXPECT_EQ(text, "");
    EXPECT_EQ(std::string(bytes, capacity), std::string(capacity, '\0'));
}

TEST_F(qtEncryptorTest, ProcessesThatStartTogetherMakeOneKey) {
    for (int round = 0; round < 10; ++round) {
        fs::remove_all(database.parent_path());
        int start[2];
        ASSERT_EQ(pipe(start), 0);
        std::vector<pid_t> children;
        for (int i = 0; i < 4; ++i) {
            children.push_back(Start([&] {
                close(start[1]);
                char byte;
                EXPECT_EQ(read(start[0], &byte, 1), 0);
                WriteFile(folder / std::to_string(i), qtEncryptor().Encrypt("secret"));
            }));
        }
        close(start[0]);
        close(start[1]);
        for (std::size_t i = 0; i < children.size(); ++i) {
            EXPECT_EQ(End(children[i]), 0);
            EXPECT_EQ(qtEncryptor().Decrypt(FileBytes(folder / std::to_string(i))), "secret");
        }
    }
}

}  // namespace
