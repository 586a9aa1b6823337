#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <vector>

/// Starts a child process that does `work`; its status is 0 when no expectation failed in it.
template <class Work>
pid_t Start(const Work& work) {
    const pid_t child = fork();
    if (child == 0) {
        work();
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    EXPECT_GT(child, 0);
    return child;
}

/// Waits for a child process, after a signal where one is given. @return its status
inline int End(pid_t child, int signal = 0) {
    if (signal != 0) {
        kill(child, signal);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

/// Starts writers, each with a pipe for its reports, and kills them after random times, at once or
/// only after the first report. @return the reports
template <class Report, class Random>
std::vector<Report> KillWriters(const std::vector<std::function<void(int)>>& writers,
                                Random& random, unsigned int longest, bool waits) {
    int reports[2];
    EXPECT_EQ(pipe2(reports, O_CLOEXEC), 0);
    std::vector<pid_t> children;
    for (const auto& writer : writers) {
        children.push_back(Start([&] { writer(reports[1]); }));
    }
    close(reports[1]);
    pollfd first{reports[0], POLLIN, 0};
    EXPECT_EQ(waits ? poll(&first, 1, 30000) : 1, 1);
    for (const pid_t child : children) {
        usleep(static_cast<useconds_t>(random() % longest));
        EXPECT_TRUE(WIFSIGNALED(End(child, SIGKILL))) << "a writer gave up";
    }
    std::vector<Report> all;
    for (Report report; read(reports[0], &report, sizeof report) == ssize_t{sizeof report};) {
        all.push_back(report);
    }
    close(reports[0]);
    return all;
}

/// How many rounds a test has: the number in an environment variable, if that is set.
inline int Rounds(const char* variable, int usual) {
    const char* const wanted = std::getenv(variable);
    return wanted == nullptr ? usual : std::atoi(wanted);
}

/// How many rounds of killing there are.
inline int KillRounds(int usual) {
    return Rounds("VANTRY_KILL_ROUNDS", usual);
}
