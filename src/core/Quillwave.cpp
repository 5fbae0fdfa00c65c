#include "core/Quillwave.h"

#include "accounts/User.h"
#include "accounts/UserList.h"
#include "config/Config.h"
#include "core/Log.h"
#include "core/OSTools.h"
#include "core/ThreadPool.h"
#include "http/MimeTypes.h"
#include "net/API.h"
#include "net/NameLookupThread.h"
#include "net/ServerManager.h"
#include "streaming/MountList.h"
#include "streaming/Notifier.h"
#include "streaming/ReceiverList.h"

#include <iostream>

namespace {

constexpr std::size_t PASSWORD_LENGTH = 8;

void be_quiet_on_the_console() {
    Config::Get("ScreenLog", true)->SetValue(false);
    Config::Get("RealtimeLog", true)->SetValue(false);
}

void say_where_to_configure(const std::string& password) {
    const std::string port = Config::Get("PortBase", false)->GetValue("8000");
    const std::string host = Config::Get("ServIP", false)->GetValue("localhost");
    std::cout
        << "No configuration file was found for this instance of Quillwave.  If this is your\n"
        << "first time running Quillwave please configure Quillwave by going to:\n"
        << "http://admin:" << password << "@" << host << ":" << port << "/admin" << std::endl;
}

// No configuration file: an administrator with a password of the moment, who makes one.
void make_first_account() {
    be_quiet_on_the_console();
    const std::string password = GenerateUuid().substr(0, PASSWORD_LENGTH);
    const std::shared_ptr<User> admin = UserList::Add("admin", password);
    if (admin == UserList::Get("", "")) {
        std::cerr << "Unable to create initial user account.  This condition means that you will "
                     "not be able to log into the server.  Please create a quillwave.conf file to "
                     "continue.";
        return;
    }
    admin->SetGroup(User::ADMINISTRATOR);
    admin->AddProperty(User::EVERY_MOUNT, "*", User::ALL);
    say_where_to_configure(password);
}

void start_logging() {
    const std::string w3c_path = Config::Get("W3CLogFile", false)->GetValue("quillwave-w3c.log");
    const std::string log_path = Config::Get("LogFile", false)->GetValue("quillwave.log");
    Log::SetFile(log_path, w3c_path);
}

} // namespace

std::atomic<bool> quillwave_running{true};

// The listening thread runs before accounts and mounts are there; clients that come that early wait
// until ReceiverList opens.
void Quillwave::Start(const std::string& config_path) {
    API::Init();
    Log::Init("quillwave.log");
    const bool configured = Config::Init(config_path);
    if (!configured) make_first_account();
    start_logging();
    MimeTypes::Init();
    ServerManager::Start();
    UserList::Init(Config::Get("UserFile", false)->GetValue("quillwave-users.xml"));
    MountList::Init();
    if (configured)
        UserList::Unserialize();
    else
        UserList::Serialize(); // the settings are saved soon, and no later start makes an account
    NameLookupThread::Init();
    ReceiverList::Open();
}

// Nobody enters, then all connections leave, and only then is written and ended what they used.
void Quillwave::Stop() {
    NameLookupThread::SignalStop();
    ServerManager::SignalStop();
    ServerManager::WaitForStop();
    ThreadPool::SignalStop();
    ThreadPool::WaitForStop();
    UserList::Serialize();
    MountList::SignalStop();
    MountList::WaitForStop();
    Notifier::WaitForStop();
    API::SignalStop();
    API::WaitForStop();
    NameLookupThread::WaitForStop();
    Config::SavePending();
    Log::Stop();
}
