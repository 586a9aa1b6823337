#include "hpack/HpackUpdate.h"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <string>
#include <vector>

#include "hpack/Hfile32.h"
#include "hpack/HpackFormat.h"
#include "system/AtomicFile.h"
#include "system/FileDescriptor.h"
#include "system/FileLock.h"

using vantry_internal::AtomicFile;
using vantry_internal::FileLock;
using vantry_internal::SystemError;

namespace {

/// The copy, whose errors name the package. It keeps the first one: the change may have caught it.
class CopyStream : public Hfile32 {
public:
    CopyStream(const qtString& path, const qtString& shown) {
        Open(path, 'u');
        name = shown;
    }

    void Write(char* data, unsigned int count) override {
        Keep([&] { Hfile32::Write(data, count); });
    }
    void Close() override {
        Keep([&] { Hfile32::Close(); });
    }

    /// Throws the first error of writing, if there was one.
    void RequireWritten() const {
        if (failure) {
            std::rethrow_exception(failure);
        }
    }

private:
    template <class Work>
    void Keep(const Work& work) {
        try {
            work();
        } catch (...) {
            failure = failure ? failure : std::current_exception();
            throw;
        }
    }

    std::exception_ptr failure;
};

class Copier {
public:
    Copier(const FileLock& sourceLock, const AtomicFile& targetFile,
           const HpackUpdateOptions& updateOptions)
        : source(sourceLock), target(targetFile), options(updateOptions) {}

    void Run() {
        struct stat status;
        if (fstat(source.Descriptor(), &status) != 0) {
            throw SystemError(errno, "cannot read", source.Path());
        }
        size = static_cast<std::uint64_t>(status.st_size);
        if (size > HpackFormat::maxStreamSize) {
            throw SystemError(EFBIG, "cannot change", source.Path(),
                              "no package can have more than " +
                                  std::to_string(HpackFormat::maxStreamSize) + " bytes");
        }
        Step();
        if (ioctl(target.Descriptor(), FICLONE, source.Descriptor()) != 0) {
            CopyWithin();
            CopyThrough();
        }
        done = size;
    }
    void Step() const {
        if (options.step) {
            options.step(std::min(done, size), size);
        }
    }

private:
    static constexpr std::size_t pieceSize = std::size_t{4} << 20;

    // By the kernel, as far as it can: not between all kinds of files.
    void CopyWithin() {
        for (;;) {
            const ssize_t count = copy_file_range(source.Descriptor(), nullptr, target.Descriptor(),
                                                  nullptr, pieceSize, 0);
            if (count <= 0) {
                break;
            }
            done += static_cast<std::uint64_t>(count);
            Step();
        }
    }

    // The rest, and an error that the kernel's way has met.
    void CopyThrough() {
        std::vector<char> piece(pieceSize / 16);
        while (const std::size_t count = vantry_internal::ReadSome(
                   source.Descriptor(), piece.data(), piece.size(), source.Path())) {
            vantry_internal::WriteAll(target.Descriptor(), piece.data(), count, source.Path());
            done += count;
            Step();
        }
    }

    const FileLock& source;
    const AtomicFile& target;
    const HpackUpdateOptions& options;
    std::uint64_t size = 0;
    std::uint64_t done = 0;
};

}  // namespace

void HpackUpdate(const qtString& fileName, const std::function<void(Hpack&)>& change,
                 const HpackUpdateOptions& options) {
    vantry_internal::LockWait wait;
    wait.limit = options.lockLimit;
    if (options.waiting) {
        wait.report = [&options](const std::string& line) { options.waiting(line); };
    }
    if (options.step) {
        wait.poll = [&options] { options.step(0, 0); };
    }
    const FileLock lock(fileName, wait);
    AtomicFile file(lock);
    Copier copier(lock, file, options);
    copier.Run();
    {
        auto* const copy = new CopyStream(file.Path(), fileName);
        const qtPtrLight<Generic32> stream(copy);
        Hpack package;
        package.Open(stream, 'u');
        change(package);
        package.Close();
        copy->RequireWritten();
    }
    copier.Step();
    file.Commit(options.sync ? AtomicFile::Sync::yes : AtomicFile::Sync::no);
}
