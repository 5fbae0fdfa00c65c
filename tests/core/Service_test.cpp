#include "core/Service.h"

#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

TEST(Service, WordsOnlyLeaveTheirMessage) {
    Service::Start();
    EXPECT_EQ(Service::GetError(),
              "Service Functionality is only available in Windows.  Use -k to daemonize.");
}

TEST(Service, StopNamesTheWayOut) {
    Service::Stop();
    EXPECT_EQ(Service::GetError(), "Service Functionality is only available in Windows.  Use kill "
                                   "to stop the daemon process");
}

TEST(Service, InstallSaysWhereItIsNot) {
    Service::Install();
    EXPECT_EQ(Service::GetError(),
              "Error: Cannot install Windows Service on non-Windows platform.");
}

TEST(Service, UninstallSaysTheSame) {
    Service::Uninstall();
    EXPECT_EQ(Service::GetError(),
              "Error: Cannot install Windows Service on non-Windows platform.");
}

TEST(Service, ForegroundStaysAsItIs) {
    EXPECT_FALSE(Service::Init(false));
    EXPECT_FALSE(Service::IsService());
}

namespace {

std::string target_of(int descriptor) {
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor)).string();
}

std::string what_the_daemon_sees() {
    std::string seen = Service::IsService() ? "service" : "no service";
    seen += getsid(0) == getpid() ? ", own session" : ", old session";
    seen += umask(0) == 0 ? ", umask 0" : ", old umask";
    for (int descriptor = 0; descriptor < 3; ++descriptor)
        seen += " " + target_of(descriptor);
    return seen;
}

} // namespace

TEST(Service, DaemonLeavesItsSessionAndItsDescriptorsLeadNowhere) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t middle = fork(); // so that what Init forks is no child of the test program
    if (middle == 0) {
        if (Service::Init(true)) _exit(0); // the parent's part
        const std::string seen = what_the_daemon_sees();
        const bool told = write(ends[1], seen.data(), seen.size()) > 0;
        _exit(told ? 0 : 1);
    }
    close(ends[1]);
    int status = -1;
    waitpid(middle, &status, 0);
    EXPECT_EQ(status, 0);
    char seen[200];
    const ssize_t length = read(ends[0], seen, sizeof seen);
    close(ends[0]);
    ASSERT_GT(length, 0);
    EXPECT_EQ(std::string(seen, static_cast<std::size_t>(length)),
              "service, own session, umask 0 /dev/null /dev/null /dev/null");
}

TEST(Service, DescriptorsThatCameClosedLeadNowhere) {
    const int own = open("/tmp", O_RDONLY | O_DIRECTORY | O_CLOEXEC); // stands for standard error
    ASSERT_GT(own, STDERR_FILENO);
    const pid_t child = fork();
    if (child == 0) {
        dup2(own, STDERR_FILENO);
        close(STDIN_FILENO);
        close(STDOUT_FILENO);
        Service::Init(false);
        const bool filled = target_of(STDIN_FILENO) == "/dev/null" &&
                            target_of(STDOUT_FILENO) == "/dev/null" &&
                            target_of(STDERR_FILENO) == "/tmp";
        _exit(filled ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    close(own);
    EXPECT_EQ(status, 0);
}
