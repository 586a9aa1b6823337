#include "hpack/Hfile32.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <random>

#include "hpack/qtPtrLight.h"
#include "tests/support/Allocations.h"
#include "tests/support/Bytes.h"
#include "tests/support/Errors.h"
#include "tests/support/Processes.h"
#include "tests/support/Streams.h"
#include "tests/support/TempFolder.h"

namespace {

class Hfile32Test : public testing::Test {
protected:
    ~Hfile32Test() noexcept override = default;

    template <class Action>
    void ExpectFailure(Action action, int number, const qtString& text, bool named = true) {
        ExpectError<HioErr>(action, number, named ? qtString(text + name) : text, {name});
    }

    TempFolder folder;
    qtString name = folder / "file";
    Hfile32 stream;
};

TEST_F(Hfile32Test, ModesAndFailures) {
    ExpectFailure([&] { stream.Open(name, 'x'); }, 5, "Invalid open mode", false);
    for (const char mode : {'r', 'u'}) {
        ExpectFailure([&] { stream.Open(name, mode); }, 0, "Cannot open file: ");
    }
    ExpectFailure([&] { Read(stream, 0); }, 3, "File is not open for reading", false);
    ExpectFailure([&] { stream.Seek(0); }, 2, "Invalid file offset in file ");
    ExpectFailure([&] { stream.Tell(); }, 2, "Invalid file offset in file ");
    ExpectFailure([&] { stream.SeekEnd(); }, 2, "SeekEnd error in file ");
    ExpectFailure([&] { Write(stream, "x"); }, 4, "File is not open for writing", false);
    Write(stream, "silent");
    stream.Close();

    stream.Open(name, 'w');
    Write(stream, qtString(250000, 'a'));
    ExpectFailure([&] { Read(stream, 1); }, 3, "Read error in file ");
    stream.Close();
    ExpectFailure([&] { Write(stream, "x"); }, 4, "File is not open for writing", false);
    stream.Close();

    stream.Open(name, 'r');
    EXPECT_EQ(stream.GetFileSize(), 250000u);
    EXPECT_EQ(stream.Tell(), 0u);
    EXPECT_EQ(Read(stream, 250000), qtString(250000, 'a'));
    EXPECT_EQ(Read(stream, 0), "");
    ExpectFailure([&] { Read(stream, 1); }, 3, "Read error in file ");
    ExpectFailure([&] { stream.Seek(-1); }, 2, "Invalid file offset in file ");
    stream.Seek(249999);
    EXPECT_EQ(Read(stream, 1), "a");
    ExpectFailure([&] { Write(stream, "x"); }, 4, "File is not open for writing", false);
    Write(stream, "silent");
    stream.Open(name, 'w');
    stream.Close();
    EXPECT_EQ(FileBytes(name), "");
}

TEST_F(Hfile32Test, UpdateInAnyOrderEqualsAModel) {
    WriteFile(name, "");
    stream.Open(name, 'u');
    std::mt19937 random(7);
    qtString model;
    std::size_t at = 0;
    for (int i = 0; i < 20000; ++i) {
        const auto count = static_cast<unsigned int>(random() % (i % 50 == 0 ? 9000 : 60));
        switch (random() % 5) {
            case 0:
            case 1: {
                const qtString bytes(count, static_cast<char>('a' + random() % 26));
                Write(stream, bytes);
                model.resize(std::max(model.size(), at + count), '\0');
                model.replace(at, count, bytes);
                at += count;
                break;
            }
            case 2: {
                const qtString expected = model.substr(at, count);
                const auto length = static_cast<unsigned int>(expected.size());
                ASSERT_EQ(Read(stream, length), expected) << "step " << i;
                at += length;
                break;
            }
            case 3:
                at = random() % (model.size() + 1);
                stream.Seek(static_cast<int>(at));
                break;
            default:
                ASSERT_EQ(stream.GetFileSize(), model.size());
                ASSERT_EQ(stream.Tell(), at);
                if (random() % 2 == 0) {
                    at = stream.SeekEnd();
                }
        }
    }
    stream.Close();
    EXPECT_EQ(FileBytes(name), model);
}

TEST_F(Hfile32Test, SeeksBeyondTheEnd) {
    stream.Open(name, 'w');
    stream.Seek(0x7fffffff - 1);
    Write(stream, "x");
    EXPECT_EQ(stream.SeekEnd(), 0x7fffffffu);
    stream.Close();
    ASSERT_EQ(truncate(name.c_str(), (off_t{1} << 32) - 1), 0);
    stream.Open(name, 'r');
    EXPECT_EQ(stream.SeekEnd(), 0xffffffffu);
    ASSERT_EQ(truncate(name.c_str(), off_t{1} << 32), 0);
    stream.Seek(0);
    ExpectFailure([&] { stream.SeekEnd(); }, 2, "SeekEnd error in file ");
}

TEST_F(Hfile32Test, OpensAnotherFile) {
    WriteFile(name, "first");
    WriteFile(folder / "other", "other");
    for (const auto& [file, text] : {std::pair(name, "rst"), {folder / "other", "her"}}) {
        stream.Open(file, 'r');
        stream.Seek(2);
        EXPECT_EQ(Read(stream, 3), text);
    }
    // No other program inherits it.
    for (int descriptor = 3; descriptor < 64; ++descriptor) {
        char target[4096] = {};
        const qtString link = "/proc/self/fd/" + std::to_string(descriptor);
        if (readlink(link.c_str(), target, sizeof target - 1) > 0 && folder / "other" == target) {
            EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC);
        }
    }
}

// As the C library's calls do: opening and writing wait for the reader, positioning fails.
TEST_F(Hfile32Test, Fifo) {
    ASSERT_EQ(mkfifo(name.c_str(), 0600), 0);
    const qtString bytes = AllBytes() + qtString(300000, 'f');
    const pid_t reader = Start([&] {
        Hfile32 other;
        other.Open(name, 'r');
        usleep(20000);
        EXPECT_EQ(Read(other, 3), bytes.substr(0, 3));
        EXPECT_EQ(Read(other, static_cast<unsigned int>(bytes.size()) - 3), bytes.substr(3));
        ExpectFailure([&] { Read(other, 1); }, 3, "Read error in file ");
    });
    stream.Open(name, 'w');
    for (int round = 0; round < 2; ++round) {
        ExpectFailure([&] { stream.Seek(0); }, 2, "Invalid file offset in file ");
        ExpectFailure([&] { stream.SeekEnd(); }, 2, "SeekEnd error in file ");
        EXPECT_EQ(stream.Tell(), 0xffffffffu);
        Write(stream, round == 0 ? bytes : "");
    }
    stream.Close();
    EXPECT_EQ(End(reader), 0);
}

// Positioning has to write out what waits. If that fails the bytes go on waiting.
TEST_F(Hfile32Test, PositioningThatCannotWrite) {
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit former;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &former), 0);
    const auto limit = [&](rlim_t bytes) {
        const rlimit room{bytes, former.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &room), 0);
    };
    WriteFile(name, "0123456789");
    stream.Open(name, 'u');
    stream.Seek(8);
    Write(stream, "abcdef");
    limit(12);
    for (int attempt = 0; attempt < 2; ++attempt) {
        ExpectFailure([&] { stream.Seek(0); }, 2, "Invalid file offset in file ");
        ExpectFailure([&] { stream.SeekEnd(); }, 2, "SeekEnd error in file ");
        ExpectFailure([&] { Read(stream, 1); }, 3, "Read error in file ");
        EXPECT_EQ(stream.Tell(), 14u);
    }
    Write(stream, "g");
    limit(former.rlim_cur);
    stream.Seek(0);
    EXPECT_EQ(Read(stream, 15), "01234567abcdefg");
    stream.Close();
    EXPECT_EQ(FileBytes(name), "01234567abcdefg");
}

TEST_F(Hfile32Test, ErrorsHaveTheReasonOfTheSystem) {
    const auto line = [](auto action) {
        try {
            action();
        } catch (const qtxAll& error) {
            return error.ErrorString();
        }
        return qtString();
    };
    EXPECT_EQ(line([&] { stream.Open(name, 'r'); }),
              "HioErr: error (number 0, code 2, level 1): Cannot open file: " + name +
                  ": No such file or directory");
    stream.Open("/dev/full", 'w');
    EXPECT_EQ(line([&] { Write(stream, qtString(1000000, 'x')); }),
              "HioErr: error (number 4, code 2, level 1): Write error in file /dev/full: "
              "No space left on device");
    stream.Open(name, 'w');
    stream.Open(name, 'r');
    EXPECT_EQ(line([&] { Read(stream, 1); }),
              "HioErr: error (number 3, code 2, level 1): Read error in file " + name);
}

// /dev/full accepts what fits into a buffer and fails when that is written out.
TEST_F(Hfile32Test, OneFaultGivesOneException) {
    name = "/dev/full";
    stream.Open(name, 'w');
    ExpectFailure([&] { Write(stream, qtString(1000000, 'x')); }, 4, "Write error in file ");
    Write(stream, qtString(1000000, 'x'));
    EXPECT_NO_THROW(stream.Close());
    const auto unwritten = [&] {
        auto* const file = new Hfile32;
        qtPtrLight<Generic32> pointer(file);
        file->Open(name, 'w');
        Write(*file, "waits in the buffer");
        return pointer;
    };
    qtPtrLight<Generic32> closed(unwritten());
    ExpectFailure([&] { closed->Close(); }, 1, "Close error in file ");
    EXPECT_NO_THROW(closed->Close());
    // The destructor reports unless another exception is propagating, and then needs no memory.
    ExpectFailure([&] { unwritten() = qtPtrLight<Generic32>(); }, 1, "Close error in file ");
    ExpectFailure([&] { const qtPtrLight<Generic32> pointer(unwritten()); }, 1,
                  "Close error in file ");
    EXPECT_THROW(
        {
            const qtPtrLight<Generic32> pointer(unwritten());
            Allocations::untilFailure = 0;
            throw 1;
        },
        int);
    Allocations::untilFailure = -1;
}

}  // namespace
