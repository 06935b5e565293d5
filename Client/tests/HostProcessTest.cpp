#include "Fixture.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace ClientTest;

namespace {

constexpr int longestWait = 60'000; // ms

TEST(AHostProcess, EndsWithTheProcessThatStartedIt)
{
    const TemporaryFolder folder; // of what the child has no time to remove
    const TemporaryFolder root;
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
        setenv("TMPDIR", folder.GetPath().c_str(), 1);
        const HostProcess host(root.GetPath());
        const pid_t number = host.GetProcess();
        if (write(ends[1], &number, sizeof number) != sizeof number)
            _exit(1);
        pause();
    }
    close(ends[1]);
    pid_t host = -1;
    ASSERT_EQ(read(ends[0], &host, sizeof host), static_cast<ssize_t>(sizeof host));
    close(ends[0]);
    const int process = static_cast<int>(syscall(SYS_pidfd_open, host, 0));
    ASSERT_GE(process, 0);
    kill(child, SIGKILL);
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    pollfd query{process, POLLIN, 0};
    EXPECT_EQ(poll(&query, 1, longestWait), 1);
    syscall(SYS_pidfd_send_signal, process, SIGKILL, nullptr, 0); // when it has not
    close(process);
}

} // namespace
