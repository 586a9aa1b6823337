#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utmp.h>

#include <csignal>
#include <string>
#include <vector>

/// A shell command that runs on a terminal of its own.
class OnTerminal {
public:
    explicit OnTerminal(const std::string& command) {
        EXPECT_EQ(openpty(&user, &terminal, nullptr, nullptr, nullptr), 0);
        child = fork();
        if (child == 0) {
            close(user);
            login_tty(terminal);
            execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
            _exit(127);
        }
    }
    ~OnTerminal() {
        close(user);
        close(terminal);
    }
    OnTerminal(const OnTerminal&) = delete;
    OnTerminal& operator=(const OnTerminal&) = delete;

    /// Waits for the text, then types. @return false when it does not come
    bool Answer(const std::string& expected, const std::string& keys) {
        while (output.find(expected, answered) == std::string::npos) {
            if (!Read(10000)) {
                return false;
            }
        }
        answered = output.size();
        return write(user, keys.data(), keys.size()) == static_cast<ssize_t>(keys.size());
    }

    /// Waits for the end, after a signal where one is given. @return the command's status
    int End(int signal = 0) {
        int status = 0;
        kill(child, signal);
        for (int tries = 0; waitpid(child, &status, WNOHANG) == 0; ++tries) {
            Read(10);
            if (tries == 1000) {
                kill(child, SIGKILL);
            }
        }
        while (Read(0)) {
        }
        return status;
    }

    bool Echoes() const {
        termios now{};
        return tcgetattr(terminal, &now) == 0 && (now.c_lflag & ECHO) != 0;
    }

    pid_t Child() const { return child; }

    /// All that the command has written, and what was echoed.
    std::string output;

private:
    bool Read(int milliseconds) {
        char bytes[4096];
        pollfd ready{user, POLLIN, 0};
        if (poll(&ready, 1, milliseconds) != 1) {
            return false;
        }
        const ssize_t count = read(user, bytes, sizeof bytes);
        output.append(bytes, count > 0 ? static_cast<std::size_t>(count) : 0);
        return count > 0;
    }

    int user = -1;
    int terminal = -1;
    pid_t child = -1;
    std::size_t answered = 0;
};
