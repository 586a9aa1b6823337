#include "VexUnix/VexRegistryUnix.h"

#include <fcntl.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "basekit/Trace.h"
#include "basekit/files.h"
#include "basekit/qtEncryptor.h"
#include "lpstring/qtTokenize.h"
#include "system/AtomicFile.h"

using vantry_internal::AtomicFile;
using vantry_internal::SystemError;

static Trace_file Please_call_DECLARE_TRACE_in_this_file(TraceSubsystem::registry, __FILE__);

static qtString ParameterKey(const char* section, const char* name) {
    return qtString(section) + "/" + name;
}

static int BaseSetParam(const char* section, const char* name, unsigned char* data,
                        unsigned long length) {
    const qtString key = ParameterKey(section, name);
    UnixRegistry store;
    if (length <= UINT_MAX && store.Open(true) &&
        store.SetKey(key, reinterpret_cast<const char*>(data), static_cast<unsigned>(length))) {
        return 0;
    }
    tracef(0, 2, __LINE__, Please_call_DECLARE_TRACE_in_this_file, 0, "cannot write key %s",
           key.c_str());
    return -1;
}

static int BaseGetParam(const char* section, const char* name, unsigned char* buffer,
                        unsigned long* length) {
    const qtString key = ParameterKey(section, name);
    UnixRegistry store;
    const char* data = nullptr;
    unsigned valueLength = 0;
    if (!store.Open(false) || !store.GetKey(key, data, valueLength)) {
        tracef(0, 2, __LINE__, Please_call_DECLARE_TRACE_in_this_file, 0, "cannot read key %s",
               key.c_str());
        return -1;
    }
    if (valueLength > *length) {
        *length = valueLength;
        tracef(0, 2, __LINE__, Please_call_DECLARE_TRACE_in_this_file, 0,
               "insufficient space in output buffer (need %d bytes)",
               static_cast<int>(valueLength));
        return -1;
    }
    if (valueLength != 0) {
        std::memcpy(buffer, data, valueLength);
    }
    if (valueLength < *length) {
        buffer[valueLength] = '\0';
    }
    return 0;
}

static constexpr const char* dbMonitorSection = "DB_Monitor";
static constexpr const char* traceSection = "Trace";
static constexpr const char* popSection = "Pop";

int SetDbMonitorRegParam(char* name, unsigned long /*ignored*/, unsigned char* data,
                         unsigned long length) {
    return BaseSetParam(dbMonitorSection, name, data, length);
}

int SetTraceRegParam(char* name, unsigned long /*ignored*/, unsigned char* data,
                     unsigned long length) {
    return BaseSetParam(traceSection, name, data, length);
}

int SetPopRegParam(char* name, unsigned long /*ignored*/, unsigned char* data,
                   unsigned long length) {
    return BaseSetParam(popSection, name, data, length);
}

int GetDbMonitorRegParam(char* name, unsigned char* buffer, unsigned long* length) {
    return BaseGetParam(dbMonitorSection, name, buffer, length);
}

int GetTraceRegParam(char* name, unsigned char* buffer, unsigned long* length) {
    return BaseGetParam(traceSection, name, buffer, length);
}

int GetPopRegParam(char* name, unsigned char* buffer, unsigned long* length) {
    return BaseGetParam(popSection, name, buffer, length);
}

// The parameter that holds the encrypted password of a logon.
static constexpr std::string_view passwordParameter = "DatabaseParam";

static qtString LogonPrefix(const char* keshName) {
    const bool isKesh = keshName != nullptr && *keshName != '\0';
    return isKesh ? qtString("Logon/Keshs/") + keshName + "/" : qtString("Logon");
}

qtString CvexRegEdit::PasswordKey(const char* keshName) {
    return LogonPrefix(keshName).append(passwordParameter);
}

bool CvexRegEdit::IsPasswordKey(std::string_view key) {
    return key.size() >= passwordParameter.size() &&
           key.substr(key.size() - passwordParameter.size()) == passwordParameter;
}

CvexRegEdit::CvexRegEdit() {
    store.Open(true);
}

bool CvexRegEdit::Answer(bool result, qtString message) {
    m_strMessage = std::move(message);
    return result;
}

bool CvexRegEdit::IsOpen() {
    return store.Handle() != nullptr || Answer(false, "can't open DB");
}

bool CvexRegEdit::Set(const char* key, const char* value) {
    if (!IsOpen()) {
        return false;
    }
    const std::size_t length = std::strlen(value);
    const bool stored =
        length <= UINT_MAX && store.SetKey(key, value, static_cast<unsigned>(length));
    return Answer(stored, stored ? "Value set" : "Cannot set value");
}

bool CvexRegEdit::Get(const char* key) {
    if (!IsOpen()) {
        return false;
    }
    const char* data = nullptr;
    unsigned length = 0;
    if (!store.GetKey(key, data, length)) {
        return Answer(false, "Key not found");
    }
    return Answer(true, qtString("key: ") + key + "   Value: " + std::string(data, length));
}

namespace {

// Wiped in any case, std::bad_alloc included.
struct PlainPassword {
    explicit PlainPassword(const char* password) : text(password) {}
    ~PlainPassword() { qtEncryptor::Wipe(text); }
    PlainPassword(const PlainPassword&) = delete;
    PlainPassword& operator=(const PlainPassword&) = delete;

    qtString text;
};

}  // namespace

static bool EncryptPassword(const char* password, qtString& encrypted) {
    const PlainPassword plain(password);
    try {
        encrypted = qtEncryptor().Encrypt(plain.text);
        return true;
    } catch (const qtxAll&) {
        return false;
    }
}

bool CvexRegEdit::SetPassword(const char* password, const char* keshName) {
    if (!IsOpen()) {
        return false;
    }
    const qtString key = PasswordKey(keshName);
    if (keshName != nullptr && *keshName != '\0') {
        const char* user = nullptr;
        unsigned length = 0;
        if (!store.GetKey(LogonPrefix(keshName) + "DbUserName", user, length)) {
            return Answer(false,
                          qtString("Kesh ") + keshName + " does not exist. Can not set password");
        }
    }
    qtString encrypted;
    const bool stored =
        EncryptPassword(password, encrypted) &&
        store.SetKey(key, encrypted.data(), static_cast<unsigned>(encrypted.size()));
    return Answer(stored, stored ? "Password set" : "Cannot set password");
}

namespace {

// The file that an export writes. It takes the place of a former one when it is complete, unless
// only writing into that one is possible, as into a device or in a folder that must not be changed.
class ExportFile {
public:
    explicit ExportFile(const char* path) {
        if (path == nullptr) {
            out = stdout;
            return;
        }
        if (access(path, F_OK) == 0 && faccessat(AT_FDCWD, path, W_OK, AT_EACCESS) != 0) {
            return;
        }
        try {
            whole = std::make_unique<AtomicFile>(path, AtomicFile::Existing::replace);
            out = fdopen(fcntl(whole->Descriptor(), F_DUPFD_CLOEXEC, 0), "w");
        } catch (const SystemError&) {
            out = std::fopen(path, "we");
        }
    }
    ~ExportFile() { Close(); }
    ExportFile(const ExportFile&) = delete;
    ExportFile& operator=(const ExportFile&) = delete;

    std::FILE* Stream() const { return out; }

    // @return false when the new file could not take the place of the former one
    bool Finish() {
        Close();
        try {
            if (whole != nullptr) {
                whole->Commit(AtomicFile::Sync::no);
            }
            return true;
        } catch (const SystemError&) {
            return false;
        }
    }

private:
    void Close() {
        if (out != nullptr && out != stdout) {
            std::fclose(out);
        }
        out = nullptr;
    }

    std::unique_ptr<AtomicFile> whole;
    std::FILE* out = nullptr;
};

}  // namespace

bool CvexRegEdit::Export(const char* file) {
    if (!IsOpen()) {
        return false;
    }
    ExportFile exported(file);
    std::FILE* const out = exported.Stream();
    if (out == nullptr) {
        return Answer(false, qtString("can't open file ") + file);
    }
    int count = 0;
    const bool complete =
        store.ForEach([&](const qtString& key, const char* data, unsigned length) {
            if (IsPasswordKey(key)) {
                return;
            }
            ++count;
            std::fwrite(key.data(), 1, key.size(), out);
            std::putc(' ', out);
            if (length != 0) {  // an empty value may have no data
                std::fwrite(data, 1, length, out);
            }
            std::putc('\n', out);
        });
    if (!complete) {
        return Answer(false, "can't read DB");
    }
    if (!exported.Finish()) {
        return Answer(false, qtString("can't open file ") + file);
    }
    return Answer(true, "exported " + std::to_string(count) + " keys");
}

namespace {

struct Record {
    qtString key;
    qtString value;
};

}  // namespace

static Record SplitLine(const qtString& line) {
    const std::size_t separator = line.find_first_of(" \t\v\f");
    Record record{line, ""};
    if (separator != qtString::npos && separator + 1 < line.size()) {
        record = {line.substr(0, separator), line.substr(separator + 1)};
    }
    record.key.TrimWhiteSpace();
    record.value.TrimWhiteSpace();
    return record;
}

// Stores the records before the first that cannot be stored.
// @return how many it stored
static std::size_t StoreRecords(UnixRegistry& store, const std::vector<Record>& records) {
    for (std::size_t wanted = records.size(); wanted != 0;) {
        UnixRegistry::Update update(store);
        std::size_t count = 0;
        while (count != wanted && update.Set(records[count].key, records[count].value.data(),
                                             records[count].value.size())) {
            ++count;
        }
        if (count == wanted) {
            return update.Commit() ? count : 0;
        }
        wanted = count;
    }
    return 0;
}

bool CvexRegEdit::Import(const char* file) {
    if (!IsOpen()) {
        return false;
    }
    qtString content;
    if (qtStringRead(content, file) < 0 || content.empty()) {
        return Answer(false, qtString("can't read file ") + file);
    }
    std::vector<qtString> lines;
    qtTokenize(content, lines, "\n\r");

    std::vector<Record> records;
    for (const qtString& line : lines) {
        Record record = SplitLine(line);
        if (record.key.empty()) {
            break;
        }
        records.push_back(std::move(record));
    }
    const std::size_t stored = StoreRecords(store, records);
    if (stored < records.size()) {
        return Answer(false, "Cannot import line: " + lines[stored]);
    }
    if (stored < lines.size()) {
        return Answer(false, "invalid line: " + lines[stored]);
    }
    return Answer(true, "Imported " + std::to_string(stored) + " lines");
}
