// What moves files between packages, archives and folders.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/tools/HpkToolTest.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using Files = Contents;

using HpkTransferTest = HpkToolTest;

TEST_F(HpkTransferTest, ArchivesComeBackAsTheyWere) {
    const Files files = {{"a b", "blank"},
                         {"\xc3\xa9/\xc3\xa9", "letters"},
                         {"\xff\x80", "no UTF-8"},
                         {"empty", ""},
                         {std::string(200, 'd') + '/' + std::string(200, 'n'), "long names"},
                         {"large", std::string(600'000, 'x') + "end"}};
    WriteTree(files, "tree");
    chmod("tree/large", 0755);
    fs::create_symlink("large", "tree/link");
    ASSERT_EQ(mkfifo("tree/pipe", 0600), 0);
    fs::create_hard_link("tree/a b", "tree/zz");
    fs::create_directories("tree/nothing/in here");
    Files all = files;
    all["zz"] = "blank";
    for (const char* const tar : {"tar c", "tar c --format=pax", "tar cz", "tar cJ"}) {
        Run(std::string("rm -rf p; ") + tar +
                " --sort=name --owner=0 --group=0 -C tree .| hpk import p",
            0, "",
            "standard input: not kept: devices, pipes and the like (1), empty folders (1), "
            "hard links, now copies (1), modes other than 0644 (1), symbolic links (1)");
        Done("rm -rf copy; mkdir copy; hpk export p | tar x -C copy");
        EXPECT_EQ(Tree("copy"), all) << tar;
    }
    for (const char* const name :
         {"x.tar", "x.tgz", "x.tar.bz2", "x.tar.xz", "x.tar.zst", "x.zip"}) {
        WriteFile(name, "former");
        const std::string file = name;
        const bool isZip = file == "x.zip";
        Run("hpk export p " + file, isZip ? 1 : 0, "",
            isZip ? R"(not exported: "\xff\x80": a zip file holds names in UTF-8 alone)" : "");
        Done(isZip ? R"(hpk rm p '"\xff\x80"')" : "true");
        Done("rm -f q; hpk import q " + file + "; hpk diff p q");
        Done("rm -f q; cat " + file + " | hpk import q -; hpk diff p q");
    }
    Done("hpk export p two.tgz '*/*' large; tar tzf two.tgz | wc -l", "3\n");
}

TEST_F(HpkTransferTest, HostileArchivesAndKeysAreRefused) {
    WriteFile("make.py", R"(import io, tarfile
with tarfile.open("a.tar", "w") as archive:
    def add(name, body=b"x", **fields):
        entry = tarfile.TarInfo(name)
        entry.size = len(body)
        for field, value in fields.items():
            setattr(entry, field, value)
        archive.addfile(entry, io.BytesIO(body))
    for name in ("../up", "/abs", "a//b", "a/./b", "./a/..", "good", "././/good"):
        add(name, uid=7)
    add("linked", b"", type=tarfile.LNKTYPE, linkname="../up")
    add("old", b"new")
with open("links.cpio", "wb") as archive:  # the data is with the last link
    for name, links, body in (b"a", 2, b""), (b"b", 2, b"data"), (b"TRAILER!!!", 1, b""):
        fields = 5, 0o100644, 0, 0, links, 0, len(body), 0, 0, 0, 0, len(name) + 1, 0
        head = b"070701" + b"".join(b"%08x" % field for field in fields) + name + b"\0"
        archive.write(head + b"\0" * (-len(head) % 4) + body + b"\0" * (-len(body) % 4))
)");
    Done("python3 make.py");
    Run("hpk import links links.cpio; hpk get links a b", 0, "datadata",
        "links.cpio: not kept: hard links, now copies (1)");
    MakePackage({{"old", "long body"}, {"kept", "1"}});
    const std::string former = FileBytes("p");
    Run("hpk import p a.tar", 1, "",
        "a.tar: not kept: owners other than root (2)\n"
        "hpk: not imported: ../up: the path has a \"..\"\n"
        "hpk: not imported: /abs: an absolute path\n"
        "hpk: not imported: a//b: the path has an empty part or a \".\"\n"
        "hpk: not imported: a/./b: the path has an empty part or a \".\"\n"
        "hpk: not imported: a/..: the path has a \"..\"\n"
        "hpk: not imported: linked: a hard link to ../up, which is not in the archive");
    Done("hpk list p; hpk get p old good", "good\nkept\nold\nnewx");

    // Whatever is cut or changed, the package stays as it was, and no new one appears.
    WriteFile("p", former);
    WriteTree({{"t/1", std::string(9000, '1')}, {"t/2", "2"}}, ".");
    Done("tar cf b.tar t; tar czf b.tgz t; python3 -m zipfile -c b.zip t/");
    WriteFile("b.none", "");
    for (const std::string name : {"b.tar", "b.tgz", "b.zip", "b.none"}) {
        const std::string bytes = FileBytes(name);
        for (const std::size_t length : {bytes.size() / 8, bytes.size() / 3, std::size_t{0}}) {
            WriteFile("cut", bytes.substr(0, length));
            for (const char* const package : {"p", "new"}) {
                Run(std::string("hpk import ") + package +
                        " cut 2>err; s=$?; grep -c ^ err; exit $s",
                    1, "1\n", "");
            }
            EXPECT_EQ(FileBytes("p"), former) << name << ' ' << length;
            EXPECT_FALSE(fs::exists("new"));
        }
    }
    MakePackage({{"", "1"}, {"../up", "2"}, {"f", "3"}, {"f/below", "4"}, {"g", "5"}});
    Run("hpk export p | tar tf -; hpk export p x.tar", 1, "f\ng\n",
        "not exported: \"\": an empty key names no file\n"
        "hpk: not exported: ../up: the path has a \"..\"\n"
        "hpk: not exported: f/below: the item f is in the way\n"
        "hpk: not exported: \"\": an empty key names no file\n"
        "hpk: not exported: ../up: the path has a \"..\"\n"
        "hpk: not exported: f/below: the item f is in the way");
    Fails("hpk export p - g >/dev/full", "cannot write standard output: No space left on device");
    Fails("hpk export p x.rar",
          "the archive must end in .tar, .tar.gz, .tgz, .tar.bz2, .tar.xz, .tar.zst or .zip, or "
          "be -: x.rar (see hpk export --help)",
          2);
    Done("mkfifo pipe; timeout -k 5 0.3 " COMMAND
         " import p pipe 2>err; [ $? -eq 124 ]");  // not killed
    Done("(sleep 0.3; cat x.tar >pipe) & hpk import -q piped pipe; hpk get piped f", "3");
    // A damaged item is left out before its entry begins.
    std::string damaged = FileBytes("p");
    damaged[damaged.find("J[ls\0\0\0\1g"s)] ^= 1;
    WriteFile("p", damaged);
    Run("hpk export p x.tar g f; tar tf x.tar; exit 1", 1, "f\n",
        "p: Key points to invalid item: g");
}

TEST_F(HpkTransferTest, FilesAreChosen) {
    WriteTree({{"d/a.c", "1"},
               {"d/a.o", "2"},
               {"d/sub/b.c", "3"},
               {"d/sub/b.o", "4"},
               {"d/sub/deep.o/x", "5"},
               {"line\nend", "6"}},
              ".");
    for (const auto& [words, keys] : Files{
             {"--exclude '*.o' d", "a.c\nsub/b.c\n"},
             {"--exclude 'sub/*' --exclude a.o d", "a.c\n"},
             {"--exclude sub d", "a.c\na.o\n"},
             {"--exclude 'a*' d/a.c d/sub", "b.c\nb.o\ndeep.o/x\n"},
             {"--paths --exclude 'd/*o*' .//d", "d/a.c\nd/sub/b.c\n"},
             {"--files-from list", "a.c\nb.c\n"},
             {"--files-from list --paths d/sub", "d/a.c\nd/sub/b.c\nd/sub/b.o\nd/sub/deep.o/x\n"},
             {"--files-from - -0 d/a.o <nul", "a.c\na.o\n\"line\\nend\"\n"},
         }) {
        Done("printf 'd/a.c\\n\\nd/sub/b.c' >list; printf 'd/a.c\\0line\\nend\\0' >nul");
        Done("rm -f p; hpk create p " + words + "; hpk list p", keys);
        Done("hpk create -f p; hpk add p " + words + "; hpk list p", keys);
    }
    Fails("hpk add p", "PATH is required (see hpk add --help)", 2);
    Fails("hpk create q --paths ../x d", "cannot open ../x: No such file or directory");
    Fails("hpk create q --paths \"$PWD/d\" 2>&1 | sed 's/path .*: /path: /' >&2; exit 1",
          "cannot keep the path: an absolute path");
    Fails("hpk create q --paths d//a.c",
          "cannot keep the path d//a.c: the path has an empty part or a \".\"");
    Fails("hpk create q -0 d", "--null requires --files-from (see hpk create --help)", 2);
}

TEST_F(HpkTransferTest, SyncFollowsAFolder) {
    const std::string large(600'000, 'x');
    MakePackage({{"a", "1"}, {"b", large + "1"}, {"c", ""}, {"gone/x", "3"}, {"z", "4"}});
    WriteTree({{"d/a", "2"}, {"d/b", large + "2"}, {"d/c", ""}, {"d/new/y", "5"}, {"d/z", "44"}},
              ".");
    const std::string differences = "~ a\n~ b\n- gone/x\n+ new/y\n~ z\n";
    Run("hpk diff p d", 1, differences, "");
    Done("cp p q; hpk sync -n --delete p d; cmp p q", differences);
    Done("hpk sync -n p d", "~ a\n~ b\n+ new/y\n~ z\n");
    fs::create_symlink("a", "d/link");
    Run("hpk sync p d", 0, "", "skipped d/link: a symbolic link");
    Run("hpk diff p d", 1, "- gone/x\n", "");
    Done("hpk sync -q p d --delete; hpk diff p d; hpk check p; hpk list p", "a\nb\nc\nnew/y\nz\n");
    // Nothing to do: not even the file is replaced. Nor is an equal body written again.
    Done(
        "stat -c %i p >before; hpk sync -q --delete p d; stat -c %i p | cmp before -; "
        "hpk list -l p b | cut -c12-21 >before; echo 6 >d/a; hpk sync -q p d; hpk get p a; "
        "hpk list -l p b | cut -c12-21 | cmp before -",
        "6\n");
    Done("mv p d/p; hpk sync -q --delete d/p d; hpk list d/p a", "a\n");
    Fails("hpk sync d/p d/a", "cannot read d/a: not a folder");
    Run("hpk list d/p p", 1, "", "d/p: no item matches p");
}

TEST_F(HpkTransferTest, CopyTakesItemsOver) {
    const std::string binary("\0\n\xff", 3);
    const Files items = {{"", "empty key"}, {binary, std::string(600'000, 'b')}, {"s/x", ""}};
    MakePackage(items);
    Done(
        "hpk copy p q; hpk diff p q; stat -c %i q >before; hpk copy p q; stat -c %i q | cmp before "
        "-");
    Done("hpk copy p r s/; hpk list r", "s/x\n");
    Done(
        "hpk put r other before; printf new | hpk put p s/x; hpk copy p r 's/*'; hpk get r s/x; "
        "hpk copy p r; hpk rm r other; hpk diff p r; hpk check r",
        "new");
    Fails("hpk copy p none k", "p: no item matches k");
    EXPECT_FALSE(fs::exists("none"));
}

TEST_F(HpkTransferTest, PageHasTheMapAsData) {
    MakePackage({{"</script><b>", "1"}, {"b", std::string(1100, 'b')}, {"c\n", "3"}});
    WriteFile("read.py", R"py(import re, sys
page = open("p.html").read()
data = dict(re.findall(r'<script type="text/plain" id="(\w+)">\n(.*?)</script>', page, re.S))
at = 0
for size, kind, name in zip(data["sizes"].split(), data["kinds"], data["names"].split("\n")):
    print(at, int(size, 36), data["titles"].split("\n")[int(kind)], name.replace("\1", "<"))
    at += int(size, 36)
print(page.count("<b>"), re.findall(r'(?:src|href)=|https?:', page))
)py");
    Done("hpk map p --html p.html; python3 read.py",
         "0 16 header \n"
         "16 25 item up to 1K </script><b>\n"
         "41 1113 item up to 64K b\n"
         "1154 15 item up to 1K \"c\\n\"\n"
         "1169 47 index \n"
         "0 []\n");
    Fails("hpk map p --html x --svg y", "--svg excludes --html (see hpk map --help)", 2);
}

}  // namespace
