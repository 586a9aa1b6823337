#include "tools/vexreg/PasswordInput.h"

#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>

#include "basekit/qtEncryptor.h"
#include "tools/common/Failures.h"
#include "tools/common/System.h"

namespace vantry_tools {

namespace {

// The terminal as it was, for the signal handler too.
termios s_former;

void RestoreTerminal() {
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &s_former);
}

// Otherwise the shell would go on without echo.
void RestoreAndEnd(int signal) {
    RestoreTerminal();
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

// During its life, the terminal shows nothing and passes every key on. There is one at a time.
class SilentTerminal {
public:
    SilentTerminal() {
        tcgetattr(STDIN_FILENO, &s_former);
        for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
            if (std::signal(signal, &RestoreAndEnd) == SIG_IGN) {
                std::signal(signal, SIG_IGN);  // the caller of the tool wants it so
            }
        }
        termios silent = s_former;
        silent.c_lflag &= ~tcflag_t{ECHO | ICANON | ISIG};
        silent.c_cc[VMIN] = 1;
        silent.c_cc[VTIME] = 0;
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    }
    ~SilentTerminal() {
        RestoreTerminal();
        for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
            if (std::signal(signal, SIG_DFL) == SIG_IGN) {
                std::signal(signal, SIG_IGN);
            }
        }
        std::fputc('\n', stderr);
    }
    SilentTerminal(const SilentTerminal&) = delete;
    SilentTerminal& operator=(const SilentTerminal&) = delete;

    static bool IsKey(char byte, int key) {
        return static_cast<cc_t>(byte) == s_former.c_cc[key] && byte != '\0';
    }
};

}  // namespace

// Growing would leave copies in memory, so the text never grows.
static constexpr std::size_t room = 1023;

SecretText::SecretText() {
    text.reserve(room);
}

SecretText::~SecretText() {
    qtEncryptor::Wipe(text);
}

static void Append(qtString& text, char byte) {
    if (byte == '\0' || text.size() == room) {
        throw ToolFailure(byte == '\0' ? "a password cannot contain a NUL"
                                       : "a password cannot have more than 1023 bytes");
    }
    text += byte;
}

static bool ReadByte(char& byte) {
    const ssize_t count = read(STDIN_FILENO, &byte, 1);
    if (count < 0) {
        throw SystemError(errno, "cannot read", "standard input");
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
    // In this order: what is typed before the terminal is silent is dropped.
    const SilentTerminal terminal;
    std::fputs(question, stderr);
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
