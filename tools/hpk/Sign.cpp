#include <sys/stat.h>

#include "tools/common/LongWork.h"
#include "tools/hpk/Commands.h"
#include "tools/hpk/DigestList.h"
#include "tools/hpk/SigningKey.h"

namespace vantry_tools {

namespace {

struct KeygenOptions {
    std::string name;
};

struct SignOptions : PackageOptions {
    std::string key;
    std::string signature;

    std::string SignatureFile() const { return signature.empty() ? package + ".sig" : signature; }
};

}  // namespace

static void Keygen(const KeygenOptions& options) {
    const std::string secretPath = options.name + ".key";
    const std::string publicPath = options.name + ".pub";
    for (const std::string& path : {secretPath, publicPath}) {
        struct stat status;
        if (lstat(path.c_str(), &status) == 0) {
            throw ToolFailure("cannot create " + path + ": it already exists");
        }
    }
    const SecretKey key;
    key.Save(secretPath);
    SavePublicKey(key.PublicKey(), publicPath);
}

// What is signed: a digest of the list that "hpk sum --blake2b" shows. It names every item and its
// digest, and the title keeps a signature for other things from being taken for one of a package.
static std::string Message(const SignOptions& options) {
    PackageReader package(options.package);
    package.RequireIndex();
    const std::vector<qtString> keys = package.Keys();
    Digest digest(DigestKind::blake2b);
    RunLongWork(options.quiet, [&](CTProgress& progress) {
        StartPhase(progress, "digesting", keys.size());
        for (const qtString& key : keys) {
            digest.Add(MakeDigestList(package, {key}, DigestKind::blake2b,
                                      [&progress] { StopIfInterrupted(progress); }));
            Advance(progress, 1);
        }
    });
    return "hpk package 1\n" + Hex(digest.Finish()) + '\n';
}

static void Sign(const SignOptions& options) {
    const SecretKey key(options.key);
    SaveSignature(key.Sign(Message(options)), options.SignatureFile());
}

static void Verify(const SignOptions& options) {
    const std::string key = LoadPublicKey(options.key);
    const std::string signature = LoadSignature(options.SignatureFile());
    if (!IsSignedBy(key, Message(options), signature)) {
        throw ToolFailure(options.package + ": not what was signed with this key (" +
                          options.SignatureFile() + ")");
    }
}

static void AddSignature(CLI::App& command, SignOptions& options) {
    command
        .add_option("SIGNATURE", options.signature, "The signature's file; PKG.sig if not given")
        ->type_name("");
    options.AddQuiet(command);
}

void AddSignCommands(CLI::App& app) {
    const auto [keygenCommand, keygen] =
        AddCommand(app, "keygen", "Make a pair of keys to sign packages with",
                   "NAME.key is the secret key: its owner alone can read it, and it is not\n"
                   "encrypted. NAME.pub is for those who verify. Existing files are kept.\n"
                   "\n"
                   "Example:\n"
                   "  hpk keygen release",
                   &Keygen);
    AddPositional(keygenCommand, "NAME", keygen.name, "What the files are named after");

    const auto [signCommand, sign] = AddPackageCommand(
        app, "sign", "Sign the items of a package",
        "The signature covers all keys and bodies, not the identity and the state. It\n"
        "is a file next to the package, which stays as it is.\n"
        "\n"
        "Example:\n"
        "  hpk sign letters.hpk release.key",
        &Sign);
    AddPositional(signCommand, "KEYFILE", sign.key, "The secret key, by keygen");
    AddSignature(signCommand, sign);

    const auto [verifyCommand, verify] = AddPackageCommand(
        app, "verify", "Verify that a package is as it was signed",
        "It fails if an item was changed, added or removed, or if somebody else has\n"
        "signed.\n"
        "\n"
        "Example:\n"
        "  hpk verify letters.hpk release.pub",
        &Verify);
    AddPositional(verifyCommand, "KEYFILE", verify.key, "The public key of who signed");
    AddSignature(verifyCommand, verify);
}

}  // namespace vantry_tools
