#include "tools/hpk/Archive.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <locale.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iterator>

#include "tools/common/Failures.h"

namespace vantry_tools {

static constexpr std::size_t pieceSize = std::size_t{64} * 1024;

Utf8Locale::Utf8Locale() : own(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)), former(nullptr) {
    if (own != nullptr) {
        former = uselocale(static_cast<locale_t>(own));
    }
}

Utf8Locale::~Utf8Locale() {
    if (own != nullptr) {
        uselocale(static_cast<locale_t>(former));
        freelocale(static_cast<locale_t>(own));
    }
}

static std::string ErrorText(archive* handle) {
    const char* const text = archive_error_string(handle);
    return text != nullptr ? text : "unknown error";
}

void ArchiveReader::Closer::operator()(archive* opened) const {
    archive_read_free(opened);
}

static FileDescriptor OpenInput(const std::string& path) {
    if (path == "-") {
        FileDescriptor input(dup(STDIN_FILENO));
        if (!input) {
            throw SystemError(errno, "cannot open", path);
        }
        return input;
    }
    // Opening a pipe would wait for a writer through an interrupt; AwaitInput() waits instead.
    struct stat status;
    const bool isPipe = stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
    FileDescriptor file(
        open(path.c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC | (isPipe ? O_NONBLOCK : 0)));
    if (!file || (isPipe && fcntl(file.Get(), F_SETFL, 0) != 0)) {
        throw SystemError(errno, "cannot open", path);
    }
    return file;
}

ArchiveReader::ArchiveReader(const std::string& path, const CTProgress& workProgress)
    : shown(path == "-" ? "standard input" : path),
      progress(workProgress),
      file(OpenInput(path)),
      piece(pieceSize),
      handle(archive_read_new()) {
    if (!handle) {
        throw std::bad_alloc();
    }
    archive* const opened = handle.get();
    // Named one by one: "all" would run other programs for rare compressions, and accept formats
    // that hold no files.
    for (const auto support :
         {&archive_read_support_format_tar, &archive_read_support_format_cpio,
          &archive_read_support_format_zip, &archive_read_support_filter_gzip,
          &archive_read_support_filter_bzip2, &archive_read_support_filter_xz,
          &archive_read_support_filter_lzma, &archive_read_support_filter_zstd}) {
        support(opened);
    }
    struct stat status;
    isSeekable = fstat(file.Get(), &status) == 0 && S_ISREG(status.st_mode);
    if (isSeekable) {
        Require(archive_read_open_fd(opened, file.Get(), pieceSize));
    } else {
        const auto read = [](archive* reader, void* self, const void** data) -> la_ssize_t {
            return ReadPiece(reader, self, data);
        };
        Require(archive_read_open(opened, this, nullptr, read, nullptr));
    }
}

ArchiveReader::~ArchiveReader() = default;

// Reading from a pipe would wait through an interrupt.
static void AwaitInput(int descriptor, const CTProgress& progress) {
    constexpr int milliseconds = 100;
    pollfd input = {descriptor, POLLIN, 0};
    while (poll(&input, 1, milliseconds) == 0) {
        StopIfInterrupted(progress);
    }
    StopIfInterrupted(progress);
}

long ArchiveReader::ReadPiece(archive* opened, void* self, const void** data) {
    ArchiveReader& reader = *static_cast<ArchiveReader*>(self);
    try {
        AwaitInput(reader.file.Get(), reader.progress);
        *data = reader.piece.data();
        return static_cast<long>(
            ReadSome(reader.file.Get(), reader.piece.data(), reader.piece.size(), reader.shown));
    } catch (...) {
        reader.failure = std::current_exception();
        archive_set_error(opened, EIO, "stopped");
        return -1;
    }
}

void ArchiveReader::Fail() {
    if (failure) {
        std::rethrow_exception(failure);
    }
    throw ToolFailure("cannot read the archive " + shown + ": " + ErrorText(handle.get()));
}

void ArchiveReader::Require(int result) {
    if (result != ARCHIVE_OK && result != ARCHIVE_WARN) {
        Fail();
    }
}

static ArchiveReader::Kind KindOf(archive_entry* entry) {
    if (archive_entry_hardlink(entry) != nullptr) {
        return ArchiveReader::Kind::hardLink;
    }
    switch (archive_entry_filetype(entry)) {
        case AE_IFREG:
            return ArchiveReader::Kind::file;
        case AE_IFDIR:
            return ArchiveReader::Kind::folder;
        case AE_IFLNK:
            return ArchiveReader::Kind::symbolicLink;
        default:
            return ArchiveReader::Kind::other;
    }
}

bool ArchiveReader::Next(Entry& entry) {
    StopIfInterrupted(progress);
    archive_entry* found = nullptr;
    const int result = archive_read_next_header(handle.get(), &found);
    if (result == ARCHIVE_EOF) {
        return false;
    }
    Require(result);
    const char* const name = archive_entry_pathname(found);
    entry.name = name != nullptr ? name : "";  // it is not in the encoding that its flag claims
    entry.kind = KindOf(found);
    entry.linkTarget = entry.kind == Kind::hardLink ? archive_entry_hardlink(found) : "";
    entry.hasOwnData = archive_entry_size(found) > 0;
    // A zip file has the modes at its end, which a pipe delivers too late.
    const bool hasMode = isSeekable || (archive_format(handle.get()) & ARCHIVE_FORMAT_BASE_MASK) !=
                                           ARCHIVE_FORMAT_ZIP;
    entry.permissions = hasMode ? archive_entry_perm(found) & 07777U : 0644;
    entry.hasForeignOwner = archive_entry_uid(found) != 0 || archive_entry_gid(found) != 0;
    entry.hasAttributes =
        archive_entry_xattr_count(found) != 0 || archive_entry_acl_types(found) != 0;
    return true;
}

std::size_t ArchiveReader::Read(char* data, std::size_t room) {
    StopIfInterrupted(progress);
    const la_ssize_t count = archive_read_data(handle.get(), data, room);
    if (count < 0) {
        Fail();
    }
    return static_cast<std::size_t>(count);
}

static constexpr std::string_view knownSuffixes[] = {".tar",    ".tar.gz",  ".tgz", ".tar.bz2",
                                                     ".tar.xz", ".tar.zst", ".zip"};

static bool EndsWith(std::string_view text, std::string_view end) {
    return text.size() > end.size() && text.substr(text.size() - end.size()) == end;
}

bool ArchiveWriter::IsKnownName(const std::string& name) {
    return name == "-" || std::any_of(std::begin(knownSuffixes), std::end(knownSuffixes),
                                      [&name](auto suffix) { return EndsWith(name, suffix); });
}

void ArchiveWriter::Closer::operator()(archive* opened) const {
    archive_write_free(opened);
}

static int SetFormat(archive* handle, const std::string& name) {
    if (EndsWith(name, ".zip")) {
        return archive_write_set_format_zip(handle);
    }
    // Of tar's formats, this one holds names of any bytes and any length without conversion.
    const int result = archive_write_set_format_gnutar(handle);
    if (result != ARCHIVE_OK || name == "-" || EndsWith(name, ".tar")) {
        return result;
    }
    return EndsWith(name, "gz")    ? archive_write_add_filter_gzip(handle)
           : EndsWith(name, "bz2") ? archive_write_add_filter_bzip2(handle)
           : EndsWith(name, "xz")  ? archive_write_add_filter_xz(handle)
                                   : archive_write_add_filter_zstd(handle);
}

ArchiveWriter::ArchiveWriter(int descriptor, const std::string& name, std::time_t fileTime)
    : shown(name == "-" ? "standard output" : name), time(fileTime), handle(archive_write_new()) {
    if (!handle) {
        throw std::bad_alloc();
    }
    Require(SetFormat(handle.get(), name));
    Require(archive_write_open_fd(handle.get(), descriptor));
}

ArchiveWriter::~ArchiveWriter() {
    archive_write_fail(handle.get());  // what is not finished is not to look complete
}

void ArchiveWriter::Require(int result) {
    if (result < ARCHIVE_WARN) {
        const int error = archive_errno(handle.get());
        if (error > 0) {
            throw SystemError(error, "cannot write", shown);
        }
        throw ToolFailure("cannot write " + shown + ": " + ErrorText(handle.get()));
    }
}

bool ArchiveWriter::Holds(const std::string& name) const {
    constexpr auto invalid = static_cast<std::size_t>(-1);
    return !EndsWith(shown, ".zip") || std::mbstowcs(nullptr, name.c_str(), 0) != invalid;
}

void ArchiveWriter::BeginFile(const std::string& path, std::uint32_t size) {
    const std::unique_ptr<archive_entry, void (*)(archive_entry*)> entry(archive_entry_new(),
                                                                         &archive_entry_free);
    if (!entry) {
        throw std::bad_alloc();
    }
    archive_entry_copy_pathname(entry.get(), path.c_str());
    archive_entry_set_size(entry.get(), size);
    archive_entry_set_filetype(entry.get(), AE_IFREG);
    archive_entry_set_perm(entry.get(), 0644);
    archive_entry_set_mtime(entry.get(), time, 0);
    Require(archive_write_header(handle.get(), entry.get()));
}

void ArchiveWriter::Write(const char* data, std::size_t count) {
    while (count != 0) {
        const la_ssize_t written = archive_write_data(handle.get(), data, count);
        Require(written <= 0 ? ARCHIVE_FATAL : ARCHIVE_OK);
        data += written;
        count -= static_cast<std::size_t>(written);
    }
}

void ArchiveWriter::Finish() {
    Require(archive_write_close(handle.get()));
}

}  // namespace vantry_tools
