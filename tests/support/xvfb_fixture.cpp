// Xvfb for tests: fork, exec with -displayfd, read the display number the
// server writes once it accepts connections; SIGTERM by pid at the end, with
// SIGKILL if it does not go within a few seconds.
#include "tests/support/xvfb_fixture.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace ncbtest {

XvfbServer::XvfbServer(const std::string& screen) {
    int fds[2];
    if (pipe(fds) != 0) {
        m_reason = "pipe failed";
        return;
    }
    m_pid = fork();
    if (m_pid < 0) {
        close(fds[0]);
        close(fds[1]);
        m_reason = "fork failed";
        return;
    }
    if (m_pid == 0) {
        close(fds[0]);
        const int null = open("/dev/null", O_RDWR);
        if (null >= 0) {
            dup2(null, STDIN_FILENO);
            dup2(null, STDOUT_FILENO);
            dup2(null, STDERR_FILENO);
        }
        const std::string fd = std::to_string(fds[1]);
        execlp("Xvfb", "Xvfb", "-displayfd", fd.c_str(), "-screen", "0", screen.c_str(),
               "-nolisten", "tcp", "-noreset", static_cast<char*>(nullptr));
        _exit(127);
    }
    close(fds[1]);
    std::string number;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < deadline) {
        pollfd p{fds[0], POLLIN, 0};
        if (poll(&p, 1, 200) <= 0) continue;
        char c;
        if (read(fds[0], &c, 1) != 1) break;  // EOF: the server did not start
        if (c == '\n') break;
        number += c;
    }
    close(fds[0]);
    if (number.empty()) {
        m_reason = "Xvfb is not installed or did not start";
        return;
    }
    m_display = ":" + number;
}

XvfbServer::~XvfbServer() {
    if (m_pid <= 0) return;
    kill(m_pid, SIGTERM);
    for (int i = 0; i < 100; ++i) {
        if (waitpid(m_pid, nullptr, WNOHANG) == m_pid) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    kill(m_pid, SIGKILL);
    waitpid(m_pid, nullptr, 0);
}

}  // namespace ncbtest
