#include <gtest/gtest.h>

#include <cstring>

#include "basekit/qtEncryptor.h"
#include "tests/support/Terminal.h"
#include "tests/support/ToolTest.h"

#define DB_DBM_HSEARCH 1
#include <db.h>
#include <fcntl.h>
#undef store
#undef fetch

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

using VexregTest = ToolTest;

TEST_F(VexregTest, ShowsAndChangesValues) {
    const std::string where = " (" + database.string() + ")";
    Fails("vexreg get a", database.string() + ": No such file or directory");
    Fails("vexreg rm a", database.string() + ": No such file or directory");
    EXPECT_FALSE(fs::exists(database.parent_path()));
    Done("vexreg set Pop/Greeting 'hello world'", "Value set\n");
    Done("vexreg set -- Pop/Offset -5", "Value set\n");
    Done("vexreg set '\"a\\nb\"' ''", "Value set\n");
    EXPECT_EQ(ReadAll(),
              (Records{{"Pop/Greeting", "hello world"}, {"Pop/Offset", "-5"}, {"a\nb", ""}}));
    Done("vexreg get Pop/Greeting", "key: Pop/Greeting   Value: hello world\n");
    Done("vexreg get --value Pop/Greeting", "hello world");
    Fails("vexreg get '\"a\\n\"'", "\"a\\n\": Key not found" + where);
    Done("vexreg list", "Pop/Greeting\nPop/Offset\n\"a\\nb\"\n");
    Done("vexreg list -l Pop/O; vexreg ls '*/G*'", "Pop/Offset\t-5\nPop/Greeting\n");
    Done("vexreg list --json '\"a\\n\"'",
         "[\n  {\"key\":\"a\\nb\",\"key_hex\":\"610a62\",\"size\":0,\"value\":\"\","
         "\"value_hex\":\"\"}\n]\n");
    Fails("vexreg list nope", "no key begins with or matches nope" + where);
    Run("vexreg list --json nope", 1, "[]\n", "no key begins with or matches nope" + where);
    Fails("vexreg rm none Pop/Offset", "none: Key not found" + where);
    Done("vexreg rm '\"a\\nb\"'");
    EXPECT_EQ(ReadAll(), (Records{{"Pop/Greeting", "hello world"}}));

    WriteFile(database, "no database");
    const std::string cause = database.string() + ": not a registry database";
    WriteFile("in", "# vexreg dump 1\na\tb\n# end\n");
    for (const std::string words :
         {"get a", "export file", "import --dry-run in", "load --dry-run in"}) {
        Fails("vexreg " + words, cause);
    }
    Fails("vexreg set a b", "a: can't open DB (" + cause + ")");
    EXPECT_FALSE(fs::exists("file"));
    Run("vexreg rm", 2, "", "KEY is required (see vexreg rm --help)");
    Run("vexreg get", 2, "", "KEY is required (see vexreg get --help)");
    Run("vexreg list --jsn", 2, "",
        "unknown word or option --jsn; did you mean --json? (see vexreg list --help)");
    Run("vexreg get '\"a\\x00\"'", 2, "",
        "\"a\\x00\": a key with NUL in it needs --value (see vexreg get --help)");
}

TEST_F(VexregTest, PasswordsAreReadAndNeverShown) {
    const fs::path key = fs::path(database).replace_extension(".key");
    Fails("echo geheim | vexreg password --kesh k",
          "Logon/Keshs/k/DatabaseParam: Kesh k does not exist. Can not set password (" +
              database.string() + ")");
    EXPECT_FALSE(fs::exists(key)) << "nothing was encrypted";
    Done("printf 'secret\\r\\nmore' | vexreg password", "Password set\n");
    EXPECT_EQ(qtEncryptor().Decrypt(ReadAll()["LogonDatabaseParam"]), "secret");
    Fails("vexreg password </dev/null", "no password given; nothing was stored");
    Fails("printf 'a\\0b' | vexreg password", "a password cannot contain a NUL");
    Fails("yes | tr -d '\\n' | vexreg password", "a password cannot have more than 1023 bytes");
    const std::string longest(1023, 'x');
    Done("echo " + longest + " | vexreg password", "Password set\n");
    EXPECT_EQ(qtEncryptor().Decrypt(ReadAll()["LogonDatabaseParam"]), longest);
    Fails("echo " + longest + "x | vexreg password", "a password cannot have more than 1023 bytes");
    Done("vexreg get LogonDatabaseParam", "key: LogonDatabaseParam   Value: (password)\n");
    Done("vexreg set Logon/Keshs/k/DbUserName scott", "Value set\n");
    Done("echo geheim | vexreg password --kesh k", "Password set\n");
    EXPECT_EQ(qtEncryptor().Decrypt(ReadAll()["Logon/Keshs/k/DatabaseParam"]), "geheim");
    Done("vexreg list -l LogonD", "LogonDatabaseParam\t(password)\n");
    Run("vexreg dump file", 0, "", "passwords omitted: 2");
    EXPECT_EQ(FileBytes("file"), "# vexreg dump 1\nLogon/Keshs/k/DbUserName\tscott\n# end\n");
    WriteFile(key, "short");
    Fails("echo x | vexreg password",
          "LogonDatabaseParam: Cannot set password (Cannot use key file " + key.string() +
              ": it is not a key of 32 bytes)");
}

TEST_F(VexregTest, ExportsAndImports) {
    ASSERT_TRUE(Set("Pop/Greeting", "hello") && Set("edge", " x") && Set("DatabaseParam", "p"));
    WriteFile("other", "before");
    fs::create_symlink("other", "file");
    Run("vexreg export file", 0, "",
        "exported 2 keys\n"
        "vexreg: will not read back the same: edge\n"
        "vexreg: 1 of the exported records will not read back the same; "
        "\"vexreg dump\" keeps all");
    EXPECT_TRUE(fs::is_symlink("file"));
    Done("vexreg rm edge");
    Run("vexreg export", 0, "Pop/Greeting hello\n", "exported 1 keys");
    Run("vexreg export >/dev/full", 1, "", "cannot write standard output: No space left on device");
    Run("(ulimit -f 100; vexreg set big $(seq -s. 20000)); vexreg export file", 0, "",
        "big: Cannot set value (" + database.string() +
            ": File too large)\n"
            "vexreg: exported 1 keys");
    EXPECT_EQ(FileBytes("other"), "Pop/Greeting hello\n");
    EXPECT_FALSE(fs::exists(database.string() + ".new"));

    WriteFile("in", "Pop/Greeting  hallo\nnew 1\nnew 2\nDatabaseParam  p\n");
    const Records before = ReadAll();
    Done("vexreg import --dry-run in",
         "keep\tDatabaseParam\t(password)\nchange\tPop/Greeting\thallo\nadd\tnew\t2\n");
    EXPECT_EQ(ReadAll(), before);
    Done("vexreg import - <in", "Imported 4 lines\n");
    EXPECT_EQ(ReadAll(),
              (Records{{"Pop/Greeting", "hallo"}, {"new", "2"}, {"DatabaseParam", "p"}}));
    WriteFile("in", "a 1\n b\nc 3\n");
    Run("vexreg import --dry-run in", 1, "add\ta\t1\n", "in: invalid line:  b");
    Fails("vexreg import in", "in: invalid line:  b");
    Fails(": >in; vexreg import in", "can't read file in (it is empty)");
    Fails("vexreg import none", "can't read file none (No such file or directory)");
}

TEST_F(VexregTest, ChoosesByKeyPrefixAndPattern) {
    const auto store = [] {
        for (const std::string key : {"Pop/a", "Pop/b", "Pop", "Pos", "x*", "xy"}) {
            ASSERT_TRUE(Set(key, "1"));
        }
    };
    store();
    const std::string where = " (" + database.string() + ")";
    struct {
        std::string words;
        std::string keys;
    } const cases[] = {
        {"Pop", "Pop "}, {"Pop/", "Pop/a Pop/b "},      {"--prefix Po", "Pop Pop/a Pop/b Pos "},
        {"'x*'", "x* "}, {"'?os' Pop/a", "Pop/a Pos "}, {"'*' Pop", "Pop Pop/a Pop/b Pos x* xy "}};
    for (const auto& row : cases) {
        std::string dump = "# vexreg dump 1\n";
        std::string exported;
        Records left = ReadAll();
        for (std::size_t at = 0; at < row.keys.size();) {
            const std::string key = row.keys.substr(at, row.keys.find(' ', at) - at);
            dump += key + "\t1\n";
            exported += key + " 1\n";
            left.erase(key);
            at += key.size() + 1;
        }
        Done("vexreg dump - " + row.words, dump + "# end\n");
        Run("vexreg export - " + row.words + " 2>stderr2", 0, exported, "");
        Done("vexreg rm " + row.words);
        EXPECT_EQ(ReadAll(), left) << row.words;
        store();
    }
    Run("vexreg dump - none Pos", 1, "# vexreg dump 1\nPos\t1\n# end\n",
        "none: no such key" + where);
    Fails("vexreg rm Pos 'n*' none/",
          "n*: Key not found" + where + "\nvexreg: none/: Key not found" + where);
    EXPECT_EQ(ReadAll().count("Pos"), 0u);
}

TEST_F(VexregTest, WatchShowsChanges) {
    ASSERT_TRUE(Set("Pop/a", "1"));
    Done("{ " COMMAND
         " watch Pop/ & pid=$!; sleep 0.3; vexreg set Pop/b '\001x' >&2;"
         " vexreg rm Pop/a; vexreg set other 1 >&2; vexreg set Pop/DatabaseParam 1 >&2;"
         " sleep 0.3; kill $pid; } 2>/dev/null",
         "set\tPop/b\t\"\\x01x\"\nremove\tPop/a\nset\tPop/DatabaseParam\t(password)\n");
}

TEST_F(VexregTest, TerminalsReceiveNothingUnprintable) {
    ASSERT_TRUE(Set("k", "a\x1b[31m\xd8\x9c\xe2\x80\x8b\nb") && Set("DatabaseParam", "\x1b"));
    const std::string shown = "a\\x1b[31m\\xd8\\x9c\\xe2\\x80\\x8b\r\nb\r\n";
    for (const auto& [words, output] : std::map<std::string, std::string>{
             {"get k", "key: k   Value: " + shown},
             {"get -v k", shown},
             {"get -v DatabaseParam", "(password)\r\n"},
             {"list -l k", "k\t\"a\\x1b[31m\\xd8\\x9c\\xe2\\x80\\x8b\\nb\"\r\n"},
             {"export - k 2>/dev/null", "k " + shown}}) {
        OnTerminal run(COMMAND " " + words);
        EXPECT_EQ(run.End(), 0);
        EXPECT_EQ(run.output, output) << words;
    }
    Done("vexreg get -v k", "a\x1b[31m\xd8\x9c\xe2\x80\x8b\nb");
}

TEST_F(VexregTest, PasswordsAreTypedUnseen) {
    {
        OnTerminal run(COMMAND " password");
        EXPECT_TRUE(run.Answer("Password: ", "wrong\x15secretx\x7f\r"));
        EXPECT_TRUE(run.Answer("Again: ", "secret\r"));
        EXPECT_EQ(run.End(), 0);
        EXPECT_EQ(run.output, "Password: \r\nAgain: \r\nPassword set\r\n");
        EXPECT_TRUE(run.Echoes());
        EXPECT_EQ(qtEncryptor().Decrypt(ReadAll()["LogonDatabaseParam"]), "secret");
    }
    {
        OnTerminal run(COMMAND " password");
        EXPECT_TRUE(run.Answer("Password: ", "a\r") && run.Answer("Again: ", "b\r"));
        EXPECT_EQ(WEXITSTATUS(run.End()), 1);
    }
    for (const int signal : {SIGTERM, SIGHUP, SIGINT}) {
        OnTerminal run("exec " COMMAND " password");
        EXPECT_TRUE(run.Answer("Password: ", ""));
        EXPECT_FALSE(run.Echoes());
        EXPECT_EQ(run.End(signal), signal);
        EXPECT_TRUE(run.Echoes()) << signal;
    }
    OnTerminal stopped("exec " COMMAND " password");
    EXPECT_TRUE(stopped.Answer("Password: ", "\3"));
    EXPECT_EQ(stopped.End(), SIGINT);
    EXPECT_TRUE(stopped.Echoes());
    OnTerminal ignoring("trap '' HUP; exec " COMMAND " password");
    EXPECT_TRUE(ignoring.Answer("Password: ", ""));
    EXPECT_EQ(kill(ignoring.Child(), SIGHUP), 0);
    EXPECT_TRUE(ignoring.Answer("", "x\r") && ignoring.Answer("Again: ", "x\r"));
    EXPECT_EQ(ignoring.End(), 0);
}

TEST_F(VexregTest, ASetUserIdProgramTrustsNoEnvironment) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer cannot look for leaks in such a program";
#endif
    const fs::path copy = folder / "bin/vexreg";
    Done("mkdir bin; cp " COMMAND " bin/vexreg");
    if (geteuid() != 0 || chown(copy.c_str(), 1000, 1000) != 0 || chmod(copy.c_str(), 04755) != 0) {
        GTEST_SKIP() << "only root can";
    }
    ASSERT_EQ(chmod(folder.c_str(), 0755), 0);
    Fails("command bin/vexreg get a",
          "BASEKIT_REGISTRY, XDG_DATA_HOME, HOME: none is set to name the registry");
}

TEST_F(VexregTest, AStoppedImportLeavesNoFolder) {
    // The signal reaches the entire group, as Ctrl-C does.
    Done("mkdir tmp; mkfifo in; setsid -w sh -c 'trap : TERM; TMPDIR=tmp " COMMAND
         " import --dry-run in & exec 3>in; ls tmp | wc -l; kill -TERM 0; wait $!' 2>/dev/null;"
         " for i in $(seq 50); do test -z \"$(ls tmp)\" || sleep 0.1; done; ls tmp",
         "1\n");
}

TEST_F(VexregTest, AKilledImportLeavesNoFolder) {
    // Once cat has ended, no process has the pipe open.
    Done("mkdir tmp; mkfifo in; { TMPDIR=tmp " COMMAND
         " import --dry-run in & exec 3>in; ls tmp |"
         " wc -l; kill -9 $!; } | cat; ls tmp",
         "1\n");
}

// Whatever order the lines come in, those named are those that a real import loses or changes.
TEST_F(VexregTest, ExportNamesWhatImportLoses) {
    for (const std::string& spoiler : {"nul\ta\0b"s, "\tx"s, " key\tx"s, "end\tx\nk3 other"s,
                                       "cr\tx\rk3 other"s, "end\tx\n\nDatabaseParam y"s, "k\t "s}) {
        fs::remove(database);
        const std::size_t tab = spoiler.find('\t');
        ASSERT_TRUE(Set(spoiler.substr(0, tab), spoiler.substr(tab + 1)));
        for (int i = 0; i < 8; ++i) {
            ASSERT_TRUE(Set("k" + std::to_string(i), "v"));
        }
        const Records before = ReadAll();
        EXPECT_EQ(std::system(COMMAND " export file 2>named"), 0);
        fs::remove(database);
        EXPECT_TRUE(WIFEXITED(std::system(COMMAND " import file >out 2>&1")));
        const Records after = ReadAll();
        const std::string named = FileBytes("named");
        for (const auto& [key, value] : before) {
            const auto found = after.find(key);
            const bool lost = found == after.end() || found->second != value;
            const std::string shown = key.empty() || key[0] == ' ' ? '"' + key + '"' : key;
            const std::string line = "vexreg: will not read back the same: " + shown + "\n";
            EXPECT_EQ(named.find(line) != std::string::npos, lost) << key << "\n" << named;
        }
    }
}

TEST_F(VexregTest, DumpKeepsEveryByte) {
    const std::string all = AllBytes();
    for (const auto& [key, value] : Records{
             {"", "x"}, {all, ""}, {"#a", "\tb "}, {"\"", all}, {"LogonDatabaseParam", "secret"}}) {
        ASSERT_TRUE(Set(key, value));
    }
    const Records model = ReadAll();
    Done("vexreg dump --with-passwords file");
    EXPECT_EQ(fs::status("file").permissions(), fs::perms(0600));
    const std::string text = FileBytes("file");
    Use(folder / "copy");
    WriteFile("cut", text.substr(0, text.size() - 7));
    Fails("vexreg load cut", "cut: the end is missing");
    WriteFile("bad", "# vexreg dump 1\na\t\"x\n# end\n");
    Fails("vexreg load bad", "bad:2: a key that begins with a quote must end with one: \"x");
    WriteFile("bad", "a\tb\n# end\n");
    Fails("vexreg load bad", "bad: not written by \"vexreg dump\"");
    EXPECT_FALSE(fs::exists(database));
    Done("vexreg load file", "loaded 5 keys\n");
    EXPECT_EQ(ReadAll(), model);
}

// Bucket pages that lead to themselves, in a database without checksums.
TEST_F(VexregTest, GivesUpOnADatabaseThatNeverEnds) {
    fs::create_directories(database.parent_path());
    DBM* const dbm =
        dbm_open(fs::path(database).replace_extension().c_str(), O_RDWR | O_CREAT, 0600);
    const datum key{const_cast<char*>("key"), 3};
    ASSERT_EQ(dbm_store(dbm, key, key, DBM_REPLACE), 0);
    dbm_close(dbm);
    std::string bytes = FileBytes(database);
    for (std::size_t page = 1; page < bytes.size() / 4096; ++page) {
        const auto number = static_cast<unsigned>(page);
        std::memcpy(&bytes[page * 4096 + 16], &number, sizeof number);
    }
    WriteFile(database, bytes);
    Fails("ulimit -t 10; vexreg __complete get ''",
          database.string() + ": no answer within 2 s of processor time: the database is damaged");
    Fails("vexreg --time-limit 1 export file",
          database.string() + ": no answer within 1 s of processor time: the database is damaged");
    EXPECT_FALSE(fs::exists("file"));
    EXPECT_EQ(FileBytes(database), bytes);
}

}  // namespace
