#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <thread>

#include "tests/support/Processes.h"
#include "tests/tools/HpkToolTest.h"

namespace {

namespace fs = std::filesystem;
using Files = Contents;

/// Makes of JSON what Python prints of it.
const std::string json = " | python3 -c 'import json, sys; print(json.load(sys.stdin))'";

TEST_F(HpkToolTest, TreeWithOddNamesComesBackAsItWas) {
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
        Done("hpk " + command + " tree/old.hpk tree 2>&1 | sort; stat -c %a tree/old.hpk",
             "hpk: skipped tree/link: a symbolic link\n"
             "hpk: skipped tree/old.hpk: the package itself\n"
             "hpk: skipped tree/pipe: not a regular file\n640\n");
        Done("hpk list -0 tree/old.hpk | tr -cd '\\0' | wc -c", "9\n");
        Done("hpk extract tree/old.hpk -C new/folder");  // the second time over existing files
        EXPECT_EQ(Tree("new/folder"), files);
    }
    // Scripts can use what was listed as it is.
    Done("hpk list -0 tree/old.hpk | xargs -0 " COMMAND " rm --raw tree/old.hpk --");
    Done("hpk list tree/old.hpk");
}

TEST_F(HpkToolTest, CommandsDoWhatTheySay) {
    WriteTree({{"in/a", "1"}, {"in/sub/b", "22"}, {"c", "333"}, {"more/a", "one"}}, ".");
    Done("hpk create p in c; hpk list -l p",
         "         1         16  a\n         3         30  c\n"
         "         2         46  sub/b\n");
    Done("hpk list p 's*b' '\"a\"'", "a\nsub/b\n");
    Fails("hpk create p in", "cannot create p: it exists (--force replaces it)");
    Done("hpk add p more; hpk get p a", "one");
    Done("hpk put p c </dev/null; hpk get p c");
    Done("hpk put p c more/a; hpk get p c -o c2; cat c2", "one");
    Done("hpk get p c -o /dev/stdout | cat", "one");
    Fails("hpk mv p a c", "p: the item c exists (--force replaces it)");
    Done("hpk mv --force p a c; hpk mv p c d; hpk list p", "d\nsub/b\n");
    Fails("hpk rm p d x", "p: Missing key in index: x");
    Done("hpk rm p d; hpk rm -f p d; hpk list p", "sub/b\n");
    Done("hpk id p 0x01020304 1286 7; hpk state p 9; hpk id p; hpk state p",
         "16909060 1286 7\n9\n");
    Done("hpk put p --number 7 c; hpk mv p --number 7 --number 8; hpk get p --number 8", "333");
    Done("hpk list p --number 8", "\"\\x00\\x00\\x00\\x08\"\n");
}

TEST_F(HpkToolTest, HabitsOfOtherToolsWork) {
    MakePackage({{"a", "one"}, {"b*", "two"}, {"bc", "3"}, {"s/x", std::string(1025, 'x')}});
    Done("hpk ls -lh p s/ a",
         "    3         16  a\n"
         " 1.1K         64  s/x\n");
    Done("hpk t p --prefix b", "b*\nbc\n");
    Done("hpk ls --color=always p; NO_COLOR=1 hpk ls p a", "a\nb*\nbc\n\33[34ms/\33[0mx\na\n");
    Done("hpk cat p bc 'a*' 'b*'", "3onetwo");  // a key comes before what it matches
    Done("hpk cat p a --offset 1; hpk cat p a --length 1; hpk cat p a --offset 9", "neo");
    Done("cp p q; hpk rm q 'b*'; hpk rm q '?'; hpk put q bc p; hpk put q z p");
    Run("hpk diff p q", 1, "- a\n- b*\n~ bc\n+ z\n", "");
    Run("hpk diff --color=always -q p q", 1, "", "");
    Done("hpk diff q q && hpk cmp -q p p");
    std::string body((1 << 20) + 1, 'x');
    WriteFile("r", Package(Contents{{"a", body}}));
    body.back() = 'y';
    WriteFile("s", Package(Contents{{"a", body}}));
    Run("hpk diff r s", 1, "~ a\n", "");
    Fails("hpk rm -r p s",
          "unknown word or option -r; did you mean a pattern such as 'sub/*'? (see hpk rm --help)",
          2);
    Fails("hpk get p s", "p: Missing key in index: s; 1 item begins with s/");
    Fails("hpk rm p s/", "p: Missing key in index: s/; 1 item begins with s/");
    Run("hpk list p s b", 1, "",
        "p: no item matches b\nhpk: p: no item matches s; 1 item begins with s/");
    Run("hpk 2>help", 2, "", "");
    Done("hpk --help | cmp - help");
    Fails("hpk diff p none", "cannot open none: No such file or directory", 2);
    Done(
        "hpk help list >a; hpk list --help >b; hpk ls -h >c; cmp a b; cmp b c; hpk help "
        ">d");
    for (const auto& [word, meant] : Files{{"lsit", "list"},
                                           {"-tvf", "list"},
                                           {".tables", "list"},
                                           {"unzip", "extract"},
                                           {"-l", "list"},
                                           {"e", "extract"},
                                           {"-Ac", "create"},
                                           {"--to-stdout", "get"},
                                           {"list p -v", "-l"},
                                           {"p", "list p"},
                                           {"list p --jsn", "--json"}}) {
        const std::string given = word.substr(word.rfind(' ') + 1);
        const std::string see = word == given ? "hpk" : "hpk list";
        Fails("hpk " + word,
              "unknown word or option " + given + "; did you mean " + meant + "? (see " + see +
                  " --help)",
              2);
    }
    Fails("hpk fsck x", "unknown word or option fsck; did you mean check? (see hpk --help)", 2);
}

TEST_F(HpkToolTest, MapShowsWhatIsWhere) {
    MakePackage({{"<&\"", "a"}, {"b", std::string(1100, 'b')}, {"c", "3"}});
    Done("hpk rm p c; hpk map p | grep 64K", "oo  item up to 64K        1  1.1K  93.1%\n");
    Done("hpk map p --color=always | tail -n 1 | cut -c1-16", "\33[48;5;245m  \33[0\n");
    Done(
        "hpk map p --svg p.svg && python3 -c '"
        "import xml.etree.ElementTree as tree\n"
        "for title in tree.parse(\"p.svg\").iter(\"{http://www.w3.org/2000/svg}title\"):\n"
        "    print(title.text)' | uniq | head -n 4",
        "p: 2 items, 1196 bytes\n"
        "<&\": 16 bytes at 16\n"
        "b: 1113 bytes at 32\n"
        "dead space: 14 bytes at 1145\n");
}

TEST_F(HpkToolTest, KeysAreGivenAsTheyAreShown) {
    const Files shown = {{"plain", "plain"},
                         {"", R"("")"},
                         {" edge", R"(" edge")"},
                         {"edge ", R"("edge ")"},
                         {"\"", R"("\"")"},
                         {"back\\slash", R"(back\slash)"},
                         {"\"\\\n\r\t\x01", R"("\"\\\n\r\t\x01")"},
                         {std::string("\0\0\0\7", 4), R"("\x00\x00\x00\x07")"},
                         {"\xc3\xa9", "\xc3\xa9"},               // a letter
                         {"\xe2\x80\xae", R"("\xe2\x80\xae")"},  // changes the direction of writing
                         {"\xd8\x9c", R"("\xd8\x9c")"},          // so does this
                         {"a\xe2\x80\x8b", R"("a\xe2\x80\x8b")"},                // has no width
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
        Done("hpk get p -- \"$(cat word)\"", text);
        Done("hpk list p -- \"$(cat word)\"", text + '\n');
    }
    Done("hpk list p", listed);
    Done("hpk put p -- --help word; hpk get p -- --help", shown.rbegin()->second);
    Fails("hpk get p '\"a'",
          "a key that begins with a quote must end with one: \"a (see hpk get --help)", 2);
    Fails("hpk rm p '\"\\q\"'",
          R"(bad escape in key "\q": \n, \r, \t, \", \\ and \xHH are known (see hpk rm --help))",
          2);
    Fails("hpk get p '\"\\x0g\"'",
          R"(bad escape in key "\x0g": \n, \r, \t, \", \\ and \xHH are known (see hpk get --help))",
          2);
    const qtString withNul("x\0y", 3);  // to a pattern, NUL is a byte like any other
    MakePackage({{withNul, "1"}, {"x", "2"}});
    Done("hpk list p 'x?y'; hpk list p 'x'", "\"x\\x00y\"\nx\n");
    Fails("hpk list p no 'n*'", "p: no item matches n*\nhpk: p: no item matches no");
}

TEST_F(HpkToolTest, JsonTellsWhatThePackageIs) {
    MakePackage({{"a", "first"}, {qtString("\xff\0", 2), "second"}, {"z", "third"}});
    WriteFile("text", "a longer body");
    Done("hpk put p a </dev/null; hpk put p z text; hpk id p 1 2 3");
    chmod("p", 0400);
    Done("hpk info --json p" + json,
         "{'format': 'current', 'id': 1, 'word': 2, 'flags': 3, 'state': 0, 'items': 3, "
         "'size': 134, 'live': 111, 'dead': 23, 'index_offset': 72}\n");
    Done("hpk list --json p" + json,
         "[{'key': 'a', 'key_hex': '61', 'offset': 16, 'size': 0}, "
         "{'key': 'z', 'key_hex': '7a', 'offset': 108, 'size': 13}, "
         "{'key': None, 'key_hex': 'ff00', 'offset': 52, 'size': 6}]\n");
    for (const bool unicode : {true, false}) {
        WriteFile("p", Updated(FileBytes("p"), [&](Hpack& old) { old.SetOldID(unicode); }));
        Done("hpk info p --json" + json + " | cut -d, -f1,9",
             unicode ? "{'format': 'old-unicode', 'dead': 31\n"
                     : "{'format': 'old-ascii', 'dead': 31\n");
    }
    WriteFile("none", Hex("4a5b6c66 00000000 00000000 00000000"));
    Done("hpk info --json none" + json + " | cut -d, -f8,10", " 'live': 16, 'index_offset': 0}\n");
    for (const char* const command : {"list", "extract", "diff p", "compact", "get -- "}) {
        const std::string words = command == std::string("get -- ") ? " none a" : " none";
        Run("hpk " + (command + words), command[0] == 'd' ? 2 : 1, "",
            "none: there is no index: the package was created but never closed, or its header is "
            "damaged (hpk recover finds the items)");
    }
    Fails("hpk put none a text", "none: Input file does not have an index");
}

TEST_F(HpkToolTest, NothingThatATerminalObeysReachesIt) {
    const std::string letter = "\xc3\xa9";  // 256 KiB are read at once: this one is divided
    MakePackage(
        {{"\x1b", letter}, {"\xc2\x9b", std::string(256 * 1024 - 1, 'x') + letter + "\x1b\t"}});
    const auto onTerminal = [](const std::string& words) {
        return "script -qec \"" COMMAND " " + words + "\" /dev/null </dev/null";
    };
    Done(onTerminal("list -0 p") + " | tr '\\0' ' '", R"("\x1b" "\xc2\x9b" )");
    Done(onTerminal("list --json p") + " | grep -o '\"key\":[^,]*'",
         "\"key\":\"\\u001b\"\n\"key\":\"\\u009b\"\n");
    Done(onTerminal("get p '*'") + " | tr -d x", letter + letter + "\\1b\t");
    // The terminal alone is careful.
    Done("hpk list -0 p | tr '\\0' ' '; hpk get p '*' | tail -c 3",
         "\x1b \xc2\x9b " + letter.substr(1) + "\x1b\t");
}

TEST_F(HpkToolTest, FailuresAreOneLineWithFileAndReason) {
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
             Case{"hpk info no", "cannot open no: No such file or directory"},
             {"hpk info pipe", "cannot open pipe: not a regular file"},
             {"hpk put pipe a text", "cannot open pipe: not a regular file"},
             {"hpk list dir", "cannot open dir: Is a directory"},
             {"hpk list text", "Input file is not in expected format: text"},
             {"hpk add no one", "cannot open no: No such file or directory"},
             {"hpk list cut", "cannot read cut: it ends too soon"},
             {"hpk get p c", "p: Missing key in index: c"},
             {"hpk get p a -o no/file", "cannot create no/file: No such file or directory"},
             {"hpk get p a -o dir", "cannot open dir: Is a directory"},
             {"hpk create q one two", "two files for the key k: one/k and two/k"},
             {"hpk create -f dir one", "cannot open dir: Is a directory"},
             {"hpk create no/q one", "cannot create no/q: No such file or directory"},
             {"hpk extract p -C text", "cannot create text: Not a directory"},
             {"hpk list p >/dev/full", "cannot write standard output: No space left on device"},
             {"hpk get p a >/dev/full", "cannot write standard output: No space left on device"},
             {"ulimit -f 100; hpk add p large", "cannot write p: File too large"},
             {"hpk create - one",
              "PKG: a package needs a file: it cannot be a pipe (./- for a file that is named -) "
              "(see hpk create --help)",
              2},
             {"hpk nix", "unknown word or option nix (see hpk --help)", 2},
             {"hpk info", "PKG is required (see hpk info --help)", 2},
             {"hpk state p 256", "N: Value 256 not in range 0 to 255 (see hpk state --help)", 2},
             {"hpk id p 1 2", "ID, WORD and FLAGS go together (see hpk id --help)", 2},
             {"hpk get p a --length=-1", "--length: -1 is below 0 (see hpk get --help)", 2},
             {"hpk put p a text more", "too many words: more (see hpk put --help)", 2},
         }) {
        Fails(c.command, c.error, c.status);
    }
    EXPECT_EQ(FileBytes("p"), former);
    if (geteuid() == 0) {  // a link that another user has put into a folder for all
        Done(
            "mkdir -m 1777 drop; ln -s ../pipe drop/a; ln -s ../text drop/b; chown -h 4711 drop/?");
        for (const std::string link : {"drop/a", "drop/b"}) {
            Fails("hpk get p a -o " + link,
                  "cannot follow the link " + link + ": Permission denied");
        }
    }
    Fails("hpk extract p 'n*' -C none", "p: no item matches n*");
    Done("truncate -s 1T huge; cp p long; truncate -s 2G long");
    const std::string tooLarge = ": no package can have more than 2147483647 bytes";
    Fails("hpk put p k huge", "cannot pack huge" + tooLarge);
    Fails("hpk put p k <huge", "cannot pack standard input" + tooLarge);
    Fails("hpk create new one huge", "cannot pack huge" + tooLarge);
    Done("mkdir parts; truncate -s 2000000000 parts/1; ln parts/1 parts/2");
    Fails("hpk create new parts", "cannot pack 2 files" + tooLarge);
    Fails("hpk put long k text", "cannot change long" + tooLarge);
    WriteFile("cut", former.substr(0, former.size() - 1));
    Fails("hpk list cut", "cannot read cut: it ends too soon");
    qtString within = former;  // the length of an item's body leads past the end
    within[16 + 9] = 0x10;
    WriteFile("cut", within);
    Fails("hpk get cut a", "cut: the body of a is cut");
    EXPECT_FALSE(fs::exists("new"));
    for (const fs::directory_entry& entry : fs::directory_iterator(".")) {
        EXPECT_NE(entry.path().extension(), ".tmp") << entry;
    }
    // A damaged item does not keep the others from being read.
    std::string damaged = former;
    damaged[16] ^= 1;
    WriteFile("damaged", damaged);
    const std::string error = "damaged: Key points to invalid item: a";
    Run("hpk extract damaged -C good; hpk list -l damaged", 1,
        "         ?          ?  a\n         1         30  b\n", error + "\nhpk: " + error);
    EXPECT_EQ(Tree("good"), (Files{{"b", "2"}}));
    Run("hpk rm -q damaged a; hpk info damaged | grep items", 0, "items         1\n", "");

    Done("hpk --version", "1.0.0.79.0\n");
}

TEST_F(HpkToolTest, ExtractStaysInItsFolder) {
    const Files refused = {{"", "an empty key names no file"},
                           {"../up", "the path has a \"..\""},
                           {"./a", "the path has an empty part or a \".\""},
                           {"/tmp/absolute", "an absolute path"},
                           {"a//b", "the path has an empty part or a \".\""},
                           {"dir", "something other than a regular file is in the way"},
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
        errors += (errors.empty() ? "" : "\nhpk: ") + ("not extracted: " + shown) + ": " + reason;
    }
    Run("hpk extract p -C copy", 1, "", errors);
    EXPECT_EQ(Tree("copy"), (Files{{"file", "f"}, {"good/x", "g"}, {"zz", "z"}}));
    EXPECT_TRUE(fs::is_empty("outside"));
    EXPECT_EQ(FileBytes("victim"), "untouched");
    EXPECT_FALSE(fs::exists("up") || fs::exists("/tmp/absolute"));
}

// Whether a process has a file open that has no name yet.
bool IsBuilding(pid_t process) {
    std::error_code ignored;
    const fs::directory_iterator files("/proc/" + std::to_string(process) + "/fd", ignored);
    return std::any_of(begin(files), end(files), [&](const fs::directory_entry& file) {
        return fs::read_symlink(file, ignored).string().find(" (deleted)") != std::string::npos;
    });
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
    int status = 0;
    while (!IsBuilding(child) && waitpid(child, &status, WNOHANG) == 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    kill(child, SIGINT);
    waitpid(child, &status, 0);
    const bool stopped = WIFSIGNALED(status) && WTERMSIG(status) == SIGINT;
    EXPECT_TRUE(stopped || (WIFEXITED(status) && WEXITSTATUS(status) == 0)) << status;
    EXPECT_EQ(FileBytes("err"), stopped ? "hpk: interrupted\n" : "");
    return stopped;
}

TEST_F(HpkToolTest, ASignalThatIsIgnoredStaysIgnored) {
    MakePackage({});
    Done("flock p sleep 0.6 & sleep 0.1; (trap '' HUP; exec " COMMAND
         " put p a p) & sleep 0.2; kill -HUP $!; wait; hpk list p",
         "a\n");
}

TEST_F(HpkToolTest, InterruptLeavesWhatWasThere) {
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

TEST_F(HpkToolTest, ChangesAtOnceAreAllKept) {
    MakePackage({});
    // Each round has a change of each kind; what create replaces it must not lose.
    const int rounds = Rounds("VANTRY_CHANGES", 60) / 6;
    WriteTree({{"tree/c", "created"}, {"more/m", "added"}, {"body", "1"}}, ".");
    for (int round = 0; round < rounds; ++round) {
        Done("hpk create -f p tree; hpk put p old body; hpk put p gone body");
        Done(
            "for n in 0 1; do hpk put p $n body & done; hpk add p more & hpk mv p old new & "
            "hpk rm p gone & hpk compact p & wait; hpk list p; hpk check p",
            "0\n1\nc\nm\nnew\n");
        const int result = std::system("sh -c '" COMMAND " create -f p tree & " COMMAND
                                       " put p k body & wait' && " COMMAND " list p >stdout");
        ASSERT_EQ(result, 0);
        const std::string listed = FileBytes("stdout");
        EXPECT_TRUE(listed == "c\n" || listed == "c\nk\n") << listed;
    }
}

TEST_F(HpkToolTest, ALockIsWaitedForAloud) {
    MakePackage({{"a", "1"}});
    Run("flock p sleep 1.3 & sleep 0.1; hpk put -q p b p; wait", 0, "", "");
    Run("flock p sleep 1.3 & sleep 0.1; hpk rm p a 2>&1 | sed 's/[^ ]*\\/p/p/; s/[0-9][0-9]*/N/'; "
        "wait;"
        "hpk list p",
        0, "hpk: waiting for p, locked by process N (flock)\nb\n", "");
}

TEST_F(HpkToolTest, LinksThatAppearWhileFilesAreReadAreNotFollowed) {
    WriteTree({{"tree/sub/f", "inside"}, {"outside/f", "secret"}}, ".");
    for (int file = 0; file < 200; ++file) {
        WriteFile("tree/" + std::to_string(file), "x");
    }
    fs::create_directory_symlink("../outside", "link");
    fs::create_symlink("../outside/f", "fileLink");
    std::atomic<bool> stop = false;
    std::thread attacker([&] {
        while (!stop) {
            renameat2(AT_FDCWD, "tree/sub", AT_FDCWD, "link", RENAME_EXCHANGE);
            renameat2(AT_FDCWD, "tree/0", AT_FDCWD, "fileLink", RENAME_EXCHANGE);
        }
    });
    int packed = 0;
    bool leaked = false;
    for (int attempt = 0; attempt < 30; ++attempt) {
        [[maybe_unused]] const int status =
            std::system(COMMAND " create -q -f p tree 2>stderr && " COMMAND " add -q p tree");
        const qtString bytes = fs::exists("p") ? FileBytes("p") : qtString();
        packed += bytes.find("inside") != std::string::npos ? 1 : 0;
        leaked |= bytes.find("secret") != std::string::npos;
    }
    stop = true;
    attacker.join();
    EXPECT_FALSE(leaked);
    EXPECT_GT(packed, 0);
}

TEST_F(HpkToolTest, PathsBeyondTheSystemsLimitArePacked) {
    Done(
        "python3 -c 'import os\n"
        "for level in range(30): os.mkdir(\"d\" * 200); os.chdir(\"d\" * 200)\n"
        "open(\"f\", \"w\").write(\"deep\")'");
    Done(
        "hpk create p .; hpk list p 'd*' | wc -c; hpk get p '*/f'; hpk extract p -C copy; "
        "rm -r ddd*; hpk create -f p copy; hpk get p '*f'; rm -r copy",
        "6032\ndeepdeep");
}

TEST_F(HpkToolTest, DamageCostsNoNeighbor) {
    const Contents items = {{"k1", "1"}, {"k2", "2"}, {"k3", "3"}, {"k4", "4"}};
    const qtString former = Package(items);
    WriteFile("long", "a body that is longer than before");
    const std::size_t lengthAt = 16 + 4 + 4 + 2 + 3;
    const std::size_t offsetAt = former.size() - 4 * 10 + 9;
    for (const auto& [at, value] :
         {std::pair{lengthAt, 0x41}, {offsetAt, 31}, {offsetAt, 16 + 4 * 15}}) {
        for (const char* const words : {"put p k1 long", "mv p k1 k0", "mv p k1 longer"}) {
            qtString bytes = former;
            bytes[at] = static_cast<char>(value);
            WriteFile("p", bytes);
            [[maybe_unused]] const int status =
                std::system((COMMAND " " + std::string(words) + " 2>stderr").c_str());
            Done("hpk get p k2 k3 k4", "234");
        }
    }
    // An item that is lost can be put again.
    qtString bytes = former;
    bytes[16] = 'x';
    WriteFile("p", bytes);
    Done("hpk put p k1 long; hpk get p k1; hpk check p", FileBytes("long"));
}

TEST_F(HpkToolTest, LargeItemsNeedLittleMemory) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer needs more memory";
#endif
    // 24 MB in 20, of which a thread's stack takes 8.
    Done(
        "head -c 24000000 /dev/zero >big; printf end >>big; mkdir tree; ln big tree/t; ulimit -d "
        "20000;"
        "hpk create p tree; hpk put p k big; cat big | hpk put p k; hpk add p tree; hpk mv p k l;"
        "hpk mv p l longer; hpk compact p; hpk get p t longer -o copy; cat big big | cmp - copy;"
        "hpk check p; stat -c %s p",
        "48000084\n");
    MakePackage({{std::string(30'000'000, 'k'), ""}});
    for (const auto& [words, status] :
         {std::pair{"list p", 1}, {"get p k", 1}, {"info p", 1}, {"diff p p", 2}}) {
        Fails("ulimit -d 20000; hpk " + std::string(words), "out of memory", status);
    }
}

TEST_F(HpkToolTest, DamagedPackages) {
    MakePackage({{"a", "1"}, {"b", "22"}, {"c\n", "3"}});
    Done("chmod 640 p; hpk check p");
    Done("hpk rm p b; hpk put p a p; hpk state p 7; cp p whole");
    Done("hpk compact p small; hpk compact p --order offset; stat -c %a p", "640\n");
    EXPECT_EQ(fs::file_size("p"), fs::file_size("small"));
    EXPECT_LT(fs::file_size("p"), fs::file_size("whole"));
    Fails("hpk compact p small", "cannot create small: it exists (--force replaces it)");
    Done("hpk check p; hpk state p", "7\n");

    std::string bytes = FileBytes("whole");
    bytes[bytes.find("c\n")] = 'd';
    WriteFile("bad", bytes);
    Run("hpk check bad", 1,
        "bad: \"c\\n\", at 45: the record where its entry leads has another key\n", "");
    Done("hpk check --json bad" + json + " | grep -o \"'kind.*'key[^,]*\"",
         "'kind': 'record-key', 'offset': 45, 'key': 'c\\n', 'key_hex': '630a'\n");
    Done("hpk recover bad good",
         "bad: b, at 30: not in the index: deleted, or never saved\n"
         "bad: \"c\\n\", at 45: dropped: no complete record of it exists\n"
         "bad: \"d\\n\", at 45: taken: the index lists this record under another key\n"
         "bad: the index is in order\n"
         "bad: 2 items recovered, 1 by the index; 1 other versions left out\n");
    Done("hpk check good; hpk list good; hpk recover -qf --all bad good; hpk list good",
         "a\n\"d\\n\"\na\nb\n\"d\\n\"\n");
    // A record within another: each level would multiply its bytes.
    MakePackage({{"a", Hex("4a5b6c73 00000001 62 00000001 78")}, {"b", "y"}});
    bytes = FileBytes("p");
    bytes.back() = 29;
    WriteFile("p", bytes);
    for (const char* const command : {"extract p", "compact p", "compact p small2"}) {
        Fails(std::string("hpk ") + command,
              "p: items overlap: the package is damaged (see hpk check)");
    }
    Done("hpk get p b; ls small2 2>&1 | wc -l", "x1\n");

    Fails("hpk recover stderr out", "stderr: nothing in it is of a package");
    EXPECT_FALSE(fs::exists("out"));
}

}  // namespace
