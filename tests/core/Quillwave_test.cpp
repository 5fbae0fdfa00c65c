#include "core/Quillwave.h"

#include "accounts/User.h"
#include "accounts/UserList.h"
#include "config/Config.h"
#include "core/Log.h"
#include "streaming/MountList.h"
#include "support/Ports.h"
#include "support/TemporaryDirectory.h"

#include <filesystem>
#include <gmock/gmock.h>

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr char NO_ACCOUNT[] =
    "Unable to create initial user account.  This condition means that you will not be able to log "
    "into the server.  Please create a quillwave.conf file to continue.";

// A server without a configuration file, in a directory of its own.
class FirstRun : public testing::Test {
protected:
    FirstRun() {
        std::filesystem::current_path(directory.Path(""));
        const int port = Ports::Free(2);
        Config::Get("PortBase", true)->SetValue(port);
        Config::Get("SCSourcePort", true)->SetValue(port + 1);
        Config::Get("ServIP", true)->SetValue("127.0.0.1");
    }
    ~FirstRun() override { std::filesystem::current_path("/"); }

    // What it prints on standard output and on standard error.
    std::pair<std::string, std::string> run() {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        Quillwave::Start("missing.conf");
        Quillwave::Stop();
        const std::string out = testing::internal::GetCapturedStdout();
        return {out, testing::internal::GetCapturedStderr()};
    }

    TemporaryDirectory directory;
};

} // namespace

TEST_F(FirstRun, MakesAnAdministratorForEveryMountAndFromEverywhere) {
    const auto [out, err] = run();
    const auto admin = UserList::Get("admin", "");
    ASSERT_NE(admin, UserList::GetAnonymousUser());
    EXPECT_EQ(admin->GetGroup(), User::ADMINISTRATOR);
    EXPECT_EQ(admin->GetAllProperties(User::EVERY_MOUNT, false).count(User::EVERY_MOUNT), 1U);
    EXPECT_THAT(out, HasSubstr("http://admin:"));
    EXPECT_THAT(err, IsEmpty());
    EXPECT_THAT(directory.Read("quillwave-users.xml"),
                HasSubstr("<filter type=\"All\">*</filter>"));
}

TEST_F(FirstRun, GoesOnWithoutAnAccountThatCannotBeMade) {
    UserList::Add("admin", "taken");
    const auto [out, err] = run();
    EXPECT_EQ(err, NO_ACCOUNT);
    EXPECT_THAT(out, Not(HasSubstr("http://admin:")));
    EXPECT_EQ(UserList::Get("admin", "")->GetGroup(), User::ANONYMOUS);
    EXPECT_TRUE(directory.Has("quillwave-users.xml"));
}

TEST_F(FirstRun, SavesAtTheEndWhatWaitsForItsSave) {
    run();
    EXPECT_THAT(directory.Read("missing.conf"), HasSubstr("ScreenLog=False\nRealtimeLog=False\n"));
    EXPECT_THAT(directory.Read("quillwave.log"),
                HasSubstr("] Configuration saved to missing.conf"));
}
