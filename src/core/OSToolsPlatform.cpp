#include "core/OSTools.h"

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <netdb.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool is_numeric_address(const std::string& text) {
    addrinfo hints = {};
    hints.ai_flags = AI_NUMERICHOST;
    addrinfo* found = nullptr;
    if (getaddrinfo(text.c_str(), nullptr, &hints, &found) != 0) return false;
    freeaddrinfo(found);
    return true;
}

// The lowest bits of an address in network byte order, which is where its first byte lies.
std::uint32_t first_bits(unsigned long count) { return (std::uint32_t{1} << count) - 1; }

bool is_directory(const char* path) {
    struct stat status = {};
    return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

} // namespace

// Kept: the bits are counted modulo 32, so /32 and /0 match every address. User files hold ranges
// that were made with it.
int InIPRange(const std::string& range, const std::string& address) {
    const std::size_t slash = range.find('/');
    if (slash == std::string::npos) return -1;
    const std::string base = range.substr(0, slash);
    const std::string bits = range.substr(slash + 1);
    if (!is_numeric_address(base) || !is_number(bits)) return -1;
    const unsigned long count = static_cast<unsigned long>(std::strtol(bits.c_str(), nullptr, 10));
    const in_addr_t differing = inet_addr(base.c_str()) ^ inet_addr(address.c_str());
    return (differing & first_bits(count % 32)) == 0 ? 1 : 0;
}

void Sleep(unsigned int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

void SetThreadName(const char* name) { prctl(PR_SET_NAME, name); }
void SetThreadName(std::thread*, const char*) {}

void BeginThread(void* (*run)(void*), void* argument) {
    pthread_t thread{};
    if (pthread_create(&thread, nullptr, run, argument) == 0) pthread_detach(thread);
}

long GetCoreCount() { return sysconf(_SC_NPROCESSORS_ONLN); }

bool trylock(pthread_mutex_t* mutex) { return pthread_mutex_trylock(mutex) == 0; }

int system_mkdir(const char* path) {
    if (mkdir(path, 0755) == 0) return 0;
    return errno == EEXIST && is_directory(path) ? 0 : -1;
}
