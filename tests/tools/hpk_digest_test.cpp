// Digests and signatures of packages.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/tools/HpkToolTest.h"

namespace {

using HpkDigestTest = HpkToolTest;

TEST_F(HpkDigestTest, ListsAreThoseOfOtherTools) {
    MakePackage({{"a b", "1"},
                 {"back\\slash", "22"},
                 {"e", ""},
                 {"line\nend", "333"},
                 {"z", std::string(700'000, 'z')}});
    Done(
        "hpk extract p -C tree; hpk sum p >list; cd tree; sha256sum * >../other; "
        "sha256sum -c --quiet ../list; cmp ../list ../other");
    Done(
        "cd tree; b2sum * >../list; cd ..; hpk sum --blake2b p | cmp - list; "
        "hpk sum p --check list; sed 's/  / */' other | tac | hpk sum p --check -");
    Done("hpk sum p e | cut -c-16,65-", "e3b0c44298fc1c14  e\n");
    Done("cp p q; hpk rm q e; hpk put q n list; hpk mv q z zz; printf 2 | hpk put q 'a b'");
    Run("hpk sum q --check list", 1,
        "q: a b: the body does not have the listed digest\n"
        "q: n: not in the list of digests\n"
        "q: zz: not in the list of digests\n"
        "q: e: listed, but not in the package\n"
        "q: z: listed, but not in the package\n",
        "");
    Run("hpk sum q zz 'l*' >part; hpk sum q --check part zz line* && hpk sum q --check list 'l*' e "
        "x",
        1, "q: e: listed, but not in the package\n", "q: no item matches x");
    const std::string nul("\0\r", 2);
    MakePackage({{nul, "x"}});
    Done("hpk sum p | tee list | cut -c 1,66-; hpk sum p --check list; hpk sum p | head -c 9 >bad",
         "\\  \\0\\r\n");
    Fails("hpk sum p --check bad", "bad: line 1 has no digest and key");
    Fails("cat list list | hpk sum p --check -", R"(-: two digests for the key "\x00\r")");
    Fails("hpk sum p --store k e", "--store takes no GLOB: it lists all items (see hpk sum --help)",
          2);
}

TEST_F(HpkDigestTest, StoredListFindsEveryChangedByte) {
    MakePackage({{"a", "one"}, {"b", "22"}});
    Done("hpk sum p --store SUMS; hpk check p; hpk get p SUMS | head -n 2 | cut -c1-50",
         "# hpk digests: sha256 of all items but SUMS\n"
         "7692c3ad3540bb803c020b3aee66cd8887123234ea0c6e7143\n");
    const std::string good = FileBytes("p");
    const auto isFound = [&good](std::size_t at, std::size_t count) {
        std::string bytes = good;
        for (; count != 0; --count) {
            bytes[at++] ^= 1;
        }
        WriteFile("p", bytes);
        return std::system(COMMAND " check p >out") != 0 && std::filesystem::file_size("out") != 0;
    };
    for (const std::string body : {"one", "22"}) {
        const std::size_t start = good.find(body);
        for (std::size_t at = start; at < start + body.size(); ++at) {
            EXPECT_TRUE(isFound(at, 1)) << at;
        }
    }
    const std::size_t list = good.find("# hpk digests: ");
    const std::size_t lines = good.find('\n', list);
    const std::size_t last = good.find("# hpk digests end: ");
    const std::size_t end = good.find('\n', last);
    for (const std::size_t at : {list, list + 15, lines, lines + 1, lines + 64, lines + 67,
                                 last - 1, last, last + 20, end}) {
        EXPECT_TRUE(isFound(at, 1)) << at;
    }
    EXPECT_TRUE(isFound(list + 2, lines - list - 2));
    EXPECT_TRUE(isFound(last, end - last));
    // Nor is it fooled by digits that mean the same.
    std::string bytes = good;
    bytes.replace(good.find("7692c3ad"), 8, "7692C3AD");
    WriteFile("p", bytes);
    Run("hpk check p", 1, "p: SUMS: the list of digests is damaged\n", "");

    WriteFile("p", good);
    Done("hpk mv p SUMS copy; hpk check p; hpk mv p copy SUMS; hpk rm p b; echo | hpk put p c");
    Run("hpk check p", 1,
        "p: c: not in the list of digests\np: b: listed, but not in the package\n", "");
    Run("hpk check --json p | grep -o '\"kind\":[^,]*'", 0,
        "\"kind\":\"digest-unlisted\"\n\"kind\":\"digest-missing\"\n", "");
    Done("hpk sum p --blake2b --store SUMS; hpk check p; hpk compact p; hpk check p");
}

TEST_F(HpkDigestTest, SignaturesFailForEveryChange) {
    MakePackage({{"a", "1"}, {"b", "2"}});
    Done(
        "umask 0; hpk keygen me; hpk keygen you; stat -c %a me.key me.pub; head -n 1 me.key me.pub",
        "600\n666\n==> me.key <==\nhpk secret key 1\n\n==> me.pub <==\nhpk public key 1\n");
    Fails("hpk keygen me", "cannot create me.key: it already exists");
    Fails("cp me.pub x.pub; hpk keygen x", "cannot create x.pub: it already exists");
    EXPECT_FALSE(std::filesystem::exists("x.key"));
    Done(
        "hpk sign p me.key; hpk verify p me.pub; hpk sign p you.key other; hpk verify p you.pub "
        "other");
    const std::string wrong = "p: not what was signed with this key (p.sig)";
    Fails("hpk verify p you.pub", wrong);
    Fails("hpk verify p me.pub other", "p: not what was signed with this key (other)");
    Done(
        "cp p good; hpk id p 1 2 3; hpk put p a p; printf 1 | hpk put p a; hpk compact p; hpk "
        "verify p me.pub");
    for (const char* const change : {"rm p a", "put p a me.pub", "put p c me.pub", "mv p a c"}) {
        Fails(std::string("cp good p; hpk ") + change + "; hpk verify p me.pub", wrong);
    }
    Fails("cp good p; sed -i '2s/^./x/' p.sig; hpk verify p me.pub",
          "p.sig: no file that begins with \"hpk signature 1\" and has its digits");
    Fails("hpk sign p me.pub", "me.pub: other users can read this secret key (see chmod 600)");
    Fails("chmod 600 me.pub; hpk sign p me.pub",
          "me.pub: no file that begins with \"hpk secret key 1\" and has its digits");
    Fails("chmod 640 me.key; hpk sign p me.key",
          "me.key: other users can read this secret key (see chmod 600)");
}

}  // namespace
