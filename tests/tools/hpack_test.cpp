#include <gtest/gtest.h>
#include <sys/stat.h>

#include <thread>

#include "tests/support/Items.h"
#include "tests/support/ToolTest.h"

namespace {

namespace fs = std::filesystem;

/// Makes of JSON what Python prints of it.
const std::string json = " | python3 -c 'import json, sys; print(json.load(sys.stdin))'";

class HpackToolTest : public ToolTest {
protected:
    using Files = Contents;

    static Files Tree(const fs::path& root) {
        Files files;
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
            if (entry.is_regular_file() && !entry.is_symlink()) {
                files[entry.path().lexically_relative(root).string()] = FileBytes(entry.path());
            }
        }
        return files;
    }

    static void WriteTree(const Files& files, const fs::path& root) {
        for (const auto& [name, bytes] : files) {
            const fs::path file = root / name.c_str();
            fs::create_directories(file.parent_path());
            WriteFile(file, bytes);
        }
    }

    static void MakePackage(const Contents& items) { WriteFile("p", Package(items)); }
};

TEST_F(HpackToolTest, TreeWithOddNamesComesBackAsItWas) {
    std::string deep;
    std::string large;
    for (int level = 0; level < 60; ++level) {
        deep += "level" + std::to_string(level) + '/';
        large += std::string(50'000, static_cast<char>(level)) + deep;
    }
    const Files files = {{"a b", "blank"},
                         {"line\nend", "x"},
                         {"\xff\xfe/\x80", "no text"},
                         {"empty", ""},
                         {"-x", "dash"},
                         {"\"quoted\"", "q"},
                         {deep + "bottom", "deep"},
                         {std::string(255, 'n'), "long name"},
                         {"large", large}};
    WriteTree(files, "tree");
    WriteFile("tree/old.hpk", "former package");
    fs::create_symlink("a b", "tree/link");
    ASSERT_EQ(mkfifo("tree/pipe", 0600), 0);
    chmod("tree/old.hpk", 0640);
    for (const std::string command : {"create --force", "add"}) {
        Done("hpack " + command + " tree/old.hpk tree 2>&1 | sort; stat -c %a tree/old.hpk",
             "hpack: skipped tree/link: a symbolic link\n"
             "hpack: skipped tree/old.hpk: the package itself\n"
             "hpack: skipped tree/pipe: not a regular file\n640\n");
        Done("hpack list -0 tree/old.hpk | tr -cd '\\0' | wc -c", "9\n");
        Done("hpack extract tree/old.hpk -C new/folder");  // the second time over what is there
        EXPECT_EQ(Tree("new/folder"), files);
    }
    // What was listed for scripts goes back in unchanged.
    Done("hpack list -0 tree/old.hpk | xargs -0 " COMMAND " rm --raw tree/old.hpk --");
    Done("hpack list tree/old.hpk");
}

TEST_F(HpackToolTest, CommandsDoWhatTheySay) {
    WriteTree({{"in/a", "1"}, {"in/sub/b", "22"}, {"c", "333"}, {"more/a", "one"}}, ".");
    Done("hpack create p in c; hpack list -l p",
         "         1         16  a\n         3         30  c\n"
         "         2         46  sub/b\n");
    Done("hpack list p 's*b' '\"a\"'", "a\nsub/b\n");
    Fails("hpack create p in", "cannot create p: it is already there (--force replaces it)");
    Done("hpack add p more; hpack get p a", "one");
    Done("hpack put p c </dev/null; hpack get p c");
    Done("hpack put p c more/a; hpack get p c -o c2; cat c2", "one");
    Done("hpack get p c -o /dev/stdout | cat", "one");
    Fails("hpack mv p a c", "p: the item c is already there (--force replaces it)");
    Done("hpack mv --force p a c; hpack mv p c d; hpack list p", "d\nsub/b\n");
    Fails("hpack rm p d x", "p: Missing key in index: x");
    Done("hpack rm p d; hpack rm -f p d; hpack list p", "sub/b\n");
    Done("hpack id p 0x01020304 1286 7; hpack state p 9; hpack id p; hpack state p",
         "16909060 1286 7\n9\n");
    Done("hpack put p --number 7 c; hpack mv p --number 7 --number 8; hpack get p --number 8",
         "333");
    Done("hpack list p --number 8", "\"\\x00\\x00\\x00\\x08\"\n");
}

TEST_F(HpackToolTest, HabitsOfOtherToolsWork) {
    MakePackage({{"a", "one"}, {"b*", "two"}, {"bc", "3"}, {"s/x", std::string(1025, 'x')}});
    Done("hpack ls -lh p s/ a",
         "    3         16  a\n"
         " 1.1K         64  s/x\n");
    Done("hpack t p --prefix b", "b*\nbc\n");
    Done("hpack ls --color=always p; NO_COLOR=1 hpack ls p a", "a\nb*\nbc\n\33[34ms/\33[0mx\na\n");
    Done("hpack cat p bc 'a*' 'b*'", "3onetwo");  // a key comes before what it matches
    Done("hpack cat p a --offset 1; hpack cat p a --length 1; hpack cat p a --offset 9", "neo");
    Done("cp p q; hpack rm q 'b*'; hpack rm q '?'; hpack put q bc p; hpack put q z p");
    Run("hpack diff p q", 1, "- a\n- b*\n~ bc\n+ z\n", "");
    Run("hpack diff --color=always -q p q", 1, "", "");
    Done("hpack diff q q && hpack cmp -q p p");
    Fails("hpack diff p none", "cannot open none: No such file or directory", 2);
    Done(
        "hpack help list >a; hpack list --help >b; hpack ls -h >c; cmp a b; cmp b c; hpack help "
        ">d");
    for (const auto& [word, meant] : Files{{"lsit", "list"},
                                           {"-tvf", "list"},
                                           {".tables", "list"},
                                           {"unzip", "extract"},
                                           {"p", "list p"},
                                           {"list p --jsn", "--json"}}) {
        const std::string given = word.substr(word.rfind(' ') + 1);
        const std::string see = word == given ? "hpack" : "hpack list";
        Fails("hpack " + word,
              "unknown word or option " + given + "; did you mean " + meant + "? (see " + see +
                  " --help)",
              2);
    }
    Fails("hpack verify x", "unknown word or option verify; did you mean check? (see hpack --help)",
          2);
}

TEST_F(HpackToolTest, MapShowsWhatIsWhere) {
    MakePackage({{"<&\"", "a"}, {"b", std::string(1100, 'b')}, {"c", "3"}});
    Done("hpack rm p c; hpack map p | grep 64K", "oo  item up to 64K        1  1.1K  93.1%\n");
    Done("hpack map p --color=always | tail -n 1 | cut -c1-16", "\33[48;5;245m  \33[0\n");
    Done(
        "hpack map p --svg p.svg && python3 -c '"
        "import xml.etree.ElementTree as tree\n"
        "for title in tree.parse(\"p.svg\").iter(\"{http://www.w3.org/2000/svg}title\"):\n"
        "    print(title.text)' | uniq | head -n 4",
        "p: 2 items, 1196 bytes\n"
        "<&\": 16 bytes at 16\n"
        "b: 1113 bytes at 32\n"
        "dead space: 14 bytes at 1145\n");
}

TEST_F(HpackToolTest, KeysAreGivenAsTheyAreShown) {
    const Files shown = {{"plain", "plain"},
                         {"", R"("")"},
                         {" edge", R"(" edge")"},
                         {"\"", R"("\"")"},
                         {"back\\slash", R"(back\slash)"},
                         {"\"\\\n\r\t\x01", R"("\"\\\n\r\t\x01")"},
                         {std::string("\0\0\0\7", 4), R"("\x00\x00\x00\x07")"},
                         {"\xc3\xa9", "\xc3\xa9"},               // a letter
                         {"\xe2\x80\xae", R"("\xe2\x80\xae")"},  // turns the direction of writing
                         {"\xc0\xaf\xed\xa0\x80", R"("\xc0\xaf\xed\xa0\x80")"},  // no UTF-8
                         {"*[a]?", "*[a]?"},
                         {"[a,b]", "[a,b]"},
                         {"--help", "--help"},
                         {"list", "list"}};
    MakePackage(shown);  // the body of each is what the key is shown as
    std::string listed;
    for (const auto& [key, text] : shown) {
        listed += text + '\n';
        WriteFile("word", text);
        Done("hpack get p -- \"$(cat word)\"", text);
        Done("hpack list p -- \"$(cat word)\"", text + '\n');
    }
    Done("hpack list p", listed);
    Done("hpack put p -- --help word; hpack get p -- --help", shown.rbegin()->second);
    Fails("hpack get p '\"a'",
          "a key that begins with a quote must end with one: \"a (see hpack get --help)", 2);
    Fails("hpack rm p '\"\\q\"'",
          R"(bad escape in key "\q": \n, \r, \t, \", \\ and \xHH are known (see hpack rm --help))",
          2);
    Fails("hpack list p no 'n*'", "p: no item matches n*\nhpack: p: no item matches no");
}

TEST_F(HpackToolTest, JsonTellsWhatThePackageIs) {
    MakePackage({{"a", "first"}, {qtString("\xff\0", 2), "second"}, {"z", "third"}});
    WriteFile("text", "a longer body");
    Done("hpack put p a </dev/null; hpack put p z text; hpack id p 1 2 3");
    chmod("p", 0400);
    Done("hpack info --json p" + json,
         "{'format': 'current', 'id': 1, 'word': 2, 'flags': 3, 'state': 0, 'items': 3, "
         "'size': 134, 'live': 111, 'dead': 23, 'index_offset': 72}\n");
    Done("hpack list --json p" + json,
         "[{'key': 'a', 'key_hex': '61', 'offset': 16, 'size': 0}, "
         "{'key': 'z', 'key_hex': '7a', 'offset': 108, 'size': 13}, "
         "{'key': '\"\\\\xff\\\\x00\"', 'key_hex': 'ff00', 'offset': 52, 'size': 6}]\n");
    for (const bool unicode : {true, false}) {
        WriteFile("p", Updated(FileBytes("p"), [&](Hpack& old) { old.SetOldID(unicode); }));
        Done("hpack info p --json" + json + " | cut -d, -f1,9",
             unicode ? "{'format': 'old-unicode', 'dead': 31\n"
                     : "{'format': 'old-ascii', 'dead': 31\n");
    }
    WriteFile("none", Hex("4a5b6c66 00000000 00000000 00000000"));
    Done("hpack info --json none" + json + " | cut -d, -f8,10",
         " 'live': 16, 'index_offset': 0}\n");
    Fails("hpack put none a text", "none: Input file does not have an index");
}

TEST_F(HpackToolTest, FailuresAreOneLineWithFileAndReason) {
    MakePackage({{"a", "1"}, {"b", "2"}});
    const std::string former = FileBytes("p");
    Done("mkfifo pipe; mkdir dir; head -c 10 p >cut; seq 20000 >large");
    WriteTree({{"one/k", "1"}, {"two/k", "2"}, {"text", "This is no package at all."}}, ".");
    struct Case {
        const char* command;
        const char* error;
        int status = 1;
    };
    for (const Case& c : {
             Case{"hpack info no", "cannot open no: No such file or directory"},
             {"hpack info pipe", "cannot open pipe: not a regular file"},
             {"hpack put pipe a text", "cannot open pipe: not a regular file"},
             {"hpack list dir", "cannot open dir: Is a directory"},
             {"hpack list text", "Input file is not in expected format: text"},
             {"hpack add no one", "cannot open no: No such file or directory"},
             {"hpack list cut", "cannot read cut: it ends too soon"},
             {"hpack get p c", "p: Missing key in index: c"},
             {"hpack get p a -o no/file", "cannot create no/file: No such file or directory"},
             {"hpack get p a -o dir", "cannot open dir: Is a directory"},
             {"hpack create q one two", "two files for the key k: one/k and two/k"},
             {"hpack create -f dir one", "cannot replace dir: not a regular file"},
             {"hpack create no/q one", "cannot create no/q: No such file or directory"},
             {"hpack extract p -C text", "cannot create text: Not a directory"},
             {"hpack list p >/dev/full", "cannot write standard output: No space left on device"},
             {"hpack get p a >/dev/full", "cannot write standard output: No space left on device"},
             {"ulimit -f 100; hpack add p large", "cannot write p: File too large"},
             {"hpack", "A subcommand is required (see hpack --help)", 2},
             {"hpack nix", "unknown word or option nix (see hpack --help)", 2},
             {"hpack info", "PKG is required (see hpack info --help)", 2},
             {"hpack state p 256", "N: Value 256 not in range 0 to 255 (see hpack state --help)",
              2},
             {"hpack id p 1 2", "ID, WORD and FLAGS go together (see hpack id --help)", 2},
             {"hpack get p a --length=-1", "--length: -1 is below 0 (see hpack get --help)", 2},
             {"hpack put p a text more", "too many words: more (see hpack put --help)", 2},
         }) {
        Fails(c.command, c.error, c.status);
    }
    EXPECT_EQ(FileBytes("p"), former);
    for (const fs::directory_entry& entry : fs::directory_iterator(".")) {
        EXPECT_NE(entry.path().extension(), ".tmp") << entry;
    }
    // A damaged item does not keep the others from being read.
    std::string damaged = former;
    damaged[16] ^= 1;
    WriteFile("damaged", damaged);
    const std::string error = "damaged: Key points to invalid item: a";
    Run("hpack extract damaged -C good; hpack list -l damaged", 1,
        "         ?          ?  a\n         1         30  b\n", error + "\nhpack: " + error);
    EXPECT_EQ(Tree("good"), (Files{{"b", "2"}}));
    Run("hpack rm -q damaged a; hpack info damaged | grep items", 0, "items         1\n", "");

    Done("hpack --version", "1.0.0.79.0\n");
}

TEST_F(HpackToolTest, ExtractStaysInItsFolder) {
    const Files refused = {{"", "an empty key names no file"},
                           {"../up", "the path has a \"..\""},
                           {"./a", "the path has an empty part or a \".\""},
                           {"/tmp/absolute", "an absolute path"},
                           {"a//b", "the path has an empty part or a \".\""},
                           {"dir", "something else than a regular file is in the way"},
                           {"file/below", "Not a directory"},
                           {"final", "a link is in the way"},
                           {"good/../../up", "the path has a \"..\""},
                           {"good/..", "the path has a \"..\""},
                           {"link/x", "a link is in the way: link"},
                           {"slash/", "the path has an empty part or a \".\""},
                           {std::string("nul\0", 4), "no file name can have a NUL"}};
    Files items = {{"file", "f"}, {"good/x", "g"}, {"zz", "z"}};
    items.insert(refused.begin(), refused.end());
    MakePackage(items);
    fs::create_directories("copy/dir");
    fs::create_directory("outside");
    WriteFile("victim", "untouched");
    fs::create_directory_symlink("../outside", "copy/link");
    fs::create_symlink("../victim", "copy/final");
    std::string errors;
    for (const auto& [key, reason] : refused) {
        const std::string shown = key.empty() ? R"("")" : key.back() == 0 ? R"("nul\x00")" : key;
        errors += (errors.empty() ? "" : "\nhpack: ") + ("not extracted: " + shown) + ": " + reason;
    }
    Run("hpack extract p -C copy", 1, "", errors);
    EXPECT_EQ(Tree("copy"), (Files{{"file", "f"}, {"good/x", "g"}, {"zz", "z"}}));
    EXPECT_TRUE(fs::is_empty("outside"));
    EXPECT_EQ(FileBytes("victim"), "untouched");
    EXPECT_FALSE(fs::exists("up") || fs::exists("/tmp/absolute"));
}

// Sends SIGINT as soon as the new file is being built. @return whether that came in time
bool Interrupt(const std::string& words) {
    const std::string command = "exec " COMMAND " " + words + " 2>err";
    const pid_t child = fork();
    if (child == 0) {
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        _exit(127);
    }
    if (child < 0) {
        ADD_FAILURE() << "no process could be started";
        return false;
    }
    const std::string temporary = ".p." + std::to_string(child) + ".tmp";
    int status = 0;
    while (!fs::exists(temporary) && waitpid(child, &status, WNOHANG) == 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    kill(child, SIGINT);
    waitpid(child, &status, 0);
    EXPECT_FALSE(fs::exists(temporary));
    const bool stopped = WIFSIGNALED(status) && WTERMSIG(status) == SIGINT;
    EXPECT_TRUE(stopped || (WIFEXITED(status) && WEXITSTATUS(status) == 0)) << status;
    EXPECT_EQ(FileBytes("err"), stopped ? "hpack: interrupted\n" : "");
    return stopped;
}

TEST_F(HpackToolTest, InterruptLeavesWhatWasThere) {
    if (EMULATED) {
        GTEST_SKIP() << "an emulator's signals and threads are not the machine's";
    }
    WriteTree({{"tree/0", std::string(20'000, 'x')}}, ".");
    for (int copy = 1; copy < 3000; ++copy) {
        fs::create_hard_link("tree/0", "tree/" + std::to_string(copy));
    }
    for (const char* const words : {"create -f p tree", "add p tree"}) {
        MakePackage({{"former", "item"}});
        const std::string former = FileBytes("p");
        int attempts = 0;
        while (!Interrupt(words)) {  // the run was over before the signal came
            ASSERT_LT(++attempts, 20);
            MakePackage({{"former", "item"}});
        }
        EXPECT_EQ(FileBytes("p"), former);
    }
}

TEST_F(HpackToolTest, ChangesAtOnceAreAllKept) {
    MakePackage({});
    Done(
        "for n in 0 1 2 3 4 5 6 7; do echo $n | hpack put p $n & done; wait; "
        "for n in 0 1 2 3 4 5 6 7; do hpack get p $n; done",
        "0\n1\n2\n3\n4\n5\n6\n7\n");
}

TEST_F(HpackToolTest, PackagesThatAreNotWell) {
    MakePackage({{"a", "1"}, {"b", "22"}, {"c\n", "3"}});
    Done("chmod 640 p; hpack check p");
    Done("hpack rm p b; hpack put p a p; hpack state p 7; cp p whole");
    Done("hpack compact p small; hpack compact p --order offset; stat -c %a p", "640\n");
    EXPECT_EQ(fs::file_size("p"), fs::file_size("small"));
    EXPECT_LT(fs::file_size("p"), fs::file_size("whole"));
    Fails("hpack compact p small",
          "cannot create small: it is already there (--force replaces it)");
    Done("hpack check p; hpack state p", "7\n");

    std::string bytes = FileBytes("whole");
    bytes[bytes.find("c\n")] = 'd';
    WriteFile("bad", bytes);
    Run("hpack check bad", 1,
        "bad: \"c\\n\", at 45: the record where its entry leads has another key\n", "");
    Done("hpack check --json bad" + json + " | grep -o \"'kind.*'key[^,]*\"",
         "'kind': 'record-key', 'offset': 45, 'key': '\"c\\\\n\"'\n");
    Done("hpack recover bad good",
         "bad: b, at 30: not in the index: deleted, or never saved\n"
         "bad: \"c\\n\", at 45: dropped: no whole record of it is there\n"
         "bad: the index is in order\n"
         "bad: 2 items recovered, 1 by the index; 1 other versions left out\n");
    Done("hpack check good; hpack list good; hpack recover -qf --all bad good; hpack list good",
         "a\n\"d\\n\"\na\nb\n\"d\\n\"\n");
    Fails("hpack recover stderr out", "stderr: nothing in it is of a package");
    EXPECT_FALSE(fs::exists("out"));
}

}  // namespace
