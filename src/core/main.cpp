#include "config/Config.h"
#include "core/Log.h"
#include "core/OSTools.h"
#include "core/Quillwave.h"
#include "core/Service.h"
#include "streaming/MountList.h"

#include <csignal>
#include <iostream>
#include <optional>

namespace {

constexpr int ORDERLY = 0;
constexpr int BAD_ARGUMENT = -1; // 255 to a shell

struct Options {
    std::string config_path = "quillwave.conf";
    bool daemonise = false;
};

// The words behind "-k".
struct ServiceWord {
    const char* word;
    void (*act)();
};
constexpr ServiceWord SERVICE_WORDS[] = {
    {"install-service", Service::Install},
    {"remove-service", Service::Uninstall},
    {"start", Service::Start},
    {"stop", Service::Stop},
};

// Runs on whichever thread the signal lands on, so it only leaves notes; the log thread tells of
// it.
void signal_handler(int) {
    quillwave_running = false;
    Log::NoteTermination();
}

void on_signal(int number, void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART; // the console goes on reading
    sigaction(number, &action, nullptr);
}

void install_signal_dispositions() {
    on_signal(SIGINT, signal_handler);
    on_signal(SIGTERM, signal_handler);
    on_signal(SIGPIPE, SIG_IGN);
}

int run_service_word(const std::string& word) {
    for (const ServiceWord& known : SERVICE_WORDS) {
        if (word != known.word) continue;
        known.act();
        std::cout << Service::GetError();
        return ORDERLY;
    }
    std::cout << "Error: unrecognized service option " << word << "\n";
    return BAD_ARGUMENT;
}

// Kept: the "%s" of the warning is no place for the flag, which stands behind the text. Scripts
// look for it in this form.
int refuse_flag(const std::string& flag) {
    std::cout << "Warning: %s is not a recognized flag" << flag << "\n";
    return BAD_ARGUMENT;
}

// Fills in the options, or gives the exit status of an argument that ends the process.
std::optional<int> read_arguments(int count, char** arguments, Options& options) {
    for (int at = 1; at < count; ++at) {
        const std::string argument = arguments[at];
        if (argument.empty() || argument.front() != '-')
            options.config_path = argument;
        else if (argument != "-k")
            return refuse_flag(argument);
        else if (at + 1 < count)
            return run_service_word(arguments[at + 1]);
        else
            options.daemonise = true;
    }
    return std::nullopt;
}

// The next word of the console; empty when there is none to come.
std::string read_word() {
    std::string word;
    return std::cin >> word ? word : std::string();
}

bool confirms_quit() {
    Log::Pause(true, "Are you sure you wish to quit Quillwave? [Y or yes to confirm]");
    std::string answer = read_word();
    Log::Pause(false, "");
    tolower(answer);
    return answer == "y" || answer == "yes";
}

// True when the operator quits.
bool act_on_console() {
    const std::string word = read_word();
    if (word == "x") return confirms_quit();
    if (word == "r") {
        Config::Reload();
        MountList::Reload();
    } else if (word == "s") {
        Config::Save();
    }
    return false;
}

void wait_for_the_end() {
    while (quillwave_running) {
        if (!Service::IsService() && act_on_console()) return;
        Sleep(1000);
    }
}

} // namespace

int main(int count, char** arguments) {
    install_signal_dispositions();
    Options options;
    if (const auto status = read_arguments(count, arguments, options)) return *status;
    if (Service::Init(options.daemonise)) return ORDERLY;
    Quillwave::Start(options.config_path);
    wait_for_the_end();
    Quillwave::Stop();
    return ORDERLY;
}
