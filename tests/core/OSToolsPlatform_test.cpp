#include "core/OSTools.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class Directory : public testing::Test {
protected:
    void SetUp() override {
        std::filesystem::remove_all(base);
        std::filesystem::create_directory(base);
    }
    void TearDown() override { std::filesystem::remove_all(base); }
    std::string path(const std::string& name) const { return (base / name).string(); }

    const std::filesystem::path base =
        std::filesystem::temp_directory_path() / ("quillwave-mkdir-" + std::to_string(getpid()));
};

std::string own_thread_name() {
    char name[16] = {};
    prctl(PR_GET_NAME, name);
    return name;
}

} // namespace

TEST(InIPRange, FirstBitsOfTheWrittenAddressCount) {
    EXPECT_EQ(InIPRange("10.1.2.0/24", "10.1.2.200"), 1);
    EXPECT_EQ(InIPRange("10.1.2.0/24", "10.1.3.200"), 0);
    EXPECT_EQ(InIPRange("10.0.0.0/8", "10.200.3.4"), 1);
    EXPECT_EQ(InIPRange("10.0.0.0/8", "11.0.0.0"), 0);
    EXPECT_EQ(InIPRange("192.168.0.0/16", "192.168.255.255"), 1);
    EXPECT_EQ(InIPRange("192.168.0.0/16", "192.169.0.0"), 0);
}

TEST(InIPRange, ZeroAndThirtyTwoBitsMatchEveryAddress) {
    EXPECT_EQ(InIPRange("1.2.3.4/32", "200.1.1.1"), 1);
    EXPECT_EQ(InIPRange("1.2.3.4/0", "200.1.1.1"), 1);
    EXPECT_EQ(InIPRange("10.1.2.0/56", "10.1.2.9"), 1); // 56 is 24 modulo 32
    EXPECT_EQ(InIPRange("10.1.2.0/56", "10.1.3.9"), 0);
}

TEST(InIPRange, UnusableRanges) {
    EXPECT_EQ(InIPRange("10.1.2.0", "10.1.2.1"), -1);
    EXPECT_EQ(InIPRange("example.org/24", "10.1.2.1"), -1);
    EXPECT_EQ(InIPRange("10.1.2.0/x", "10.1.2.1"), -1);
    EXPECT_EQ(InIPRange("10.1.2.0/", "10.1.2.1"), -1);
    EXPECT_EQ(InIPRange("", "10.1.2.1"), -1);
}

TEST(InIPRange, AddressesOfTheOtherFamilyReadAsAllOnes) {
    EXPECT_EQ(InIPRange("::1/24", "10.1.2.1"), 0);
    EXPECT_EQ(InIPRange("::1/24", "255.255.255.255"), 1);
    EXPECT_EQ(InIPRange("::1/24", "fe80::1"), 1);
    EXPECT_EQ(InIPRange("10.1.2.0/24", "::1"), 0);
}

TEST(Platform, SleepTakesMilliseconds) {
    const auto started = std::chrono::steady_clock::now();
    Sleep(30);
    EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(30));
}

TEST(Platform, ThreadNamesAreCutToFifteenBytes) {
    SetThreadName("Log Thread");
    EXPECT_EQ(own_thread_name(), "Log Thread");
    SetThreadName("ThreadPool Manager");
    EXPECT_EQ(own_thread_name(), "ThreadPool Mana");
}

TEST(Platform, NamingAThreadFromOutsideDoesNothing) {
    const std::string before = own_thread_name();
    std::promise<void> let_go;
    std::thread thread([&let_go] { let_go.get_future().wait(); });
    SetThreadName(&thread, "other");
    let_go.set_value();
    thread.join();
    EXPECT_EQ(own_thread_name(), before);
}

TEST(Platform, BeginThreadRunsOnAThreadOfItsOwn) {
    std::promise<pthread_t> runner;
    BeginThread(
        [](void* argument) -> void* {
            static_cast<std::promise<pthread_t>*>(argument)->set_value(pthread_self());
            return nullptr;
        },
        &runner);
    EXPECT_FALSE(pthread_equal(runner.get_future().get(), pthread_self()));
}

TEST(Platform, CoresAreThoseOnline) { EXPECT_EQ(GetCoreCount(), sysconf(_SC_NPROCESSORS_ONLN)); }

TEST(Platform, TrylockTakesAFreeMutexOnly) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    EXPECT_TRUE(trylock(&mutex));
    EXPECT_FALSE(std::async(std::launch::async, [&mutex] { return trylock(&mutex); }).get());
    pthread_mutex_unlock(&mutex);
}

TEST_F(Directory, IsMadeWithItsMode) {
    const mode_t before = umask(0);
    EXPECT_EQ(system_mkdir(path("new").c_str()), 0);
    umask(before);
    EXPECT_EQ(std::filesystem::status(path("new")).permissions(), std::filesystem::perms(0755));
}

TEST_F(Directory, MayBeThereAlready) {
    EXPECT_EQ(system_mkdir(path("new").c_str()), 0);
    EXPECT_EQ(system_mkdir(path("new").c_str()), 0);
}

TEST_F(Directory, FileInItsPlaceIsAFailure) {
    std::ofstream(path("file")) << "x";
    EXPECT_EQ(system_mkdir(path("file").c_str()), -1);
}

TEST_F(Directory, WithoutItsParentIsAFailure) {
    EXPECT_EQ(system_mkdir(path("missing/new").c_str()), -1);
    EXPECT_EQ(system_mkdir(""), -1);
}
