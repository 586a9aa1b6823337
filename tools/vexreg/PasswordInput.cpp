#include "tools/vexreg/PasswordInput.h"

#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>

#include "basekit/qtEncryptor.h"
#include "tools/common/Failures.h"

namespace vantry_tools {

namespace {

// A terminal that shows nothing and passes every key on while it lives.
class SilentTerminal {
public:
    SilentTerminal() {
        tcgetattr(STDIN_FILENO, &former);
        termios silent = former;
        silent.c_lflag &= ~tcflag_t{ECHO | ICANON | ISIG};
        silent.c_cc[VMIN] = 1;
        silent.c_cc[VTIME] = 0;
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    }
    ~SilentTerminal() {
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &former);
        std::fputc('\n', stderr);
    }
    SilentTerminal(const SilentTerminal&) = delete;
    SilentTerminal& operator=(const SilentTerminal&) = delete;

    bool IsKey(char byte, int key) const {
        return static_cast<cc_t>(byte) == former.c_cc[key] && byte != '\0';
    }

private:
    termios former{};
};

}  // namespace

// Growing would leave copies behind, so room for all is reserved at once.
static constexpr std::size_t room = 1023;

SecretText::SecretText() {
    text.reserve(room);
}

SecretText::~SecretText() {
    qtEncryptor::Wipe(text);
}

static void Append(qtString& text, char byte) {
    if (byte == '\0' || text.size() == room) {
        throw ToolFailure(byte == '\0' ? "a password can not have a NUL in it"
                                       : "a password can not have more than 1023 bytes");
    }
    text += byte;
}

static bool ReadByte(char& byte) {
    const ssize_t count = read(STDIN_FILENO, &byte, 1);
    if (count < 0) {
        throw SystemFailure("cannot read", "standard input", errno);
    }
    return count == 1;
}

static void ReadLine(qtString& text) {
    for (char byte; ReadByte(byte) && byte != '\n';) {
        Append(text, byte);
    }
    if (!text.empty() && text.back() == '\r') {
        text.pop_back();
    }
}

static void Ask(const char* question, qtString& text) {
    std::fputs(question, stderr);
    const SilentTerminal terminal;
    for (char byte;
         ReadByte(byte) && byte != '\n' && byte != '\r' && !terminal.IsKey(byte, VEOF);) {
        if (terminal.IsKey(byte, VINTR) || terminal.IsKey(byte, VQUIT)) {
            throw Interrupted{SIGINT};
        }
        if (terminal.IsKey(byte, VKILL)) {
            text.clear();
        } else if (!terminal.IsKey(byte, VERASE)) {
            Append(text, byte);
        } else if (!text.empty()) {
            text.pop_back();
        }
    }
}

static void AskTwice(qtString& text) {
    SecretText second;
    Ask("Password: ", text);
    Ask("Again: ", second.text);
    if (text != second.text) {
        throw ToolFailure("the passwords differ; nothing was stored");
    }
}

PasswordInput::PasswordInput() {
    if (isatty(STDIN_FILENO) != 0) {
        AskTwice(password.text);
    } else {
        ReadLine(password.text);
    }
    if (password.text.empty()) {
        throw ToolFailure("no password given; nothing was stored");
    }
}

}  // namespace vantry_tools
