#include "PrivateXServer.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// Xvfb answers within a second; a machine under load gets ten.
constexpr int StartTimeoutMs = 10000;

} // namespace

PrivateXServer::~PrivateXServer()
{
    if (m_server > 0) {
        kill(m_server, SIGTERM);
        waitpid(m_server, nullptr, 0);
    }
    if (!m_runtimeFolder.empty())
        rmdir(m_runtimeFolder.c_str()); // left if Qt put something there
}

bool PrivateXServer::start(std::string& error)
{
    int channel[2];
    if (pipe2(channel, O_CLOEXEC) != 0) {
        error = std::strerror(errno);
        return false;
    }
    const pid_t parent = getpid();
    m_server = fork();
    if (m_server < 0) {
        error = std::strerror(errno);
        close(channel[0]);
        close(channel[1]);
        return false;
    }
    if (m_server == 0) {
        // The server must not outlive an export that crashed or was killed.
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() != parent)
            _exit(1);
        const int quiet = open("/dev/null", O_WRONLY);
        if (quiet >= 0) {
            dup2(quiet, STDOUT_FILENO);
            dup2(quiet, STDERR_FILENO);
        }
        // Only the write end crosses exec; Xvfb writes its display number there.
        const int fd = dup(channel[1]);
        const std::string number = std::to_string(fd);
        execlp("Xvfb", "Xvfb", "-displayfd", number.c_str(), "-screen", "0", "640x480x24", "-nolisten",
            "tcp", static_cast<char*>(nullptr));
        _exit(127);
    }
    close(channel[1]);

    std::string display;
    bool ended = false;
    pollfd wait = { channel[0], POLLIN, 0 };
    while (!ended && poll(&wait, 1, StartTimeoutMs) > 0) {
        char text[16];
        const ssize_t n = read(channel[0], text, sizeof text);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        for (ssize_t i = 0; i < n && !ended; ++i) {
            if (text[i] == '\n')
                ended = true;
            else
                display += text[i];
        }
    }
    close(channel[0]);
    if (!ended || display.empty()) {
        int status = 0;
        kill(m_server, SIGTERM);
        waitpid(m_server, &status, 0);
        m_server = -1;
        error = WIFEXITED(status) && WEXITSTATUS(status) == 127 ? "Xvfb is not installed"
                                                                  : "Xvfb did not start";
        return false;
    }
    setenv("DISPLAY", (":" + display).c_str(), 1);
    // Qt wants a private runtime folder; a session without a display may have none.
    if (!std::getenv("XDG_RUNTIME_DIR")) {
        char folder[] = "/tmp/nereon-export-XXXXXX";
        if (mkdtemp(folder)) {
            m_runtimeFolder = folder;
            setenv("XDG_RUNTIME_DIR", folder, 1);
        }
    }
    return true;
}
