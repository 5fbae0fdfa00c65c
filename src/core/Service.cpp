#include "core/Service.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

std::atomic<bool> Service::is_service{false};
std::ostringstream Service::last_error;

namespace {

// The three standard descriptors must stay taken: what is printed in a daemon would otherwise go
// into whatever file or connection is opened next.
void silence_standard_descriptors() {
    const int null = open("/dev/null", O_RDWR);
    if (null < 0) return;
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        dup2(null, fd);
    if (null > STDERR_FILENO) close(null);
}

// A starter may have closed some of them; the next connection would get their numbers.
void fill_standard_descriptors() {
    int null = 0;
    while (null >= 0 && null <= STDERR_FILENO)
        null = open("/dev/null", O_RDWR);
    if (null > STDERR_FILENO) close(null);
}

} // namespace

bool Service::Init(bool daemonise) {
    fill_standard_descriptors();
    if (!daemonise) return false;
    if (fork() > 0) return true;
    umask(0);
    if (setsid() < 0) return false;
    is_service = true;
    silence_standard_descriptors();
    return false;
}

void Service::Install() {
    last_error << "Error: Cannot install Windows Service on non-Windows platform.";
}

void Service::Uninstall() {
    last_error << "Error: Cannot install Windows Service on non-Windows platform.";
}

void Service::Start() {
    last_error << "Service Functionality is only available in Windows.  Use -k to daemonize.";
}

void Service::Stop() {
    last_error << "Service Functionality is only available in Windows.  Use kill to stop the "
                  "daemon process";
}

bool Service::IsService() { return is_service; }
std::string Service::GetError() { return last_error.str(); }
