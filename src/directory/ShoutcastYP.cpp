#include "directory/ShoutcastYP.h"

#include "config/Config.h"
#include "core/OSTools.h"
#include "directory/DirectoryForm.h"
#include "http/Request.h"
#include "media/Metadata.h"
#include "streaming/Mount.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace {
constexpr float VERSION = 1.0F;
constexpr int MINUTE = 60; // seconds
constexpr const char* CARRIED_TYPES[] = {"audio/aac", "audio/aacp", "audio/mpeg", "video/nsv"};

bool is_carried(const std::string& type) {
    return std::find(std::begin(CARRIED_TYPES), std::end(CARRIED_TYPES), type) !=
           std::end(CARRIED_TYPES);
}

// What a counter has grown by since `last`, which it then becomes. One that was set back counts
// from zero.
std::uint64_t growth(std::uint64_t& last, std::uint64_t current) {
    const std::uint64_t former = std::exchange(last, current);
    return current < former ? current : current - former;
}
} // namespace

std::map<std::string, std::string> parse_shoutcast_resp(const std::string& body) {
    std::map<std::string, std::string> pairs;
    for (const std::string& line : split(body, '\n')) {
        const std::size_t colon = line.find(':');
        if (colon == std::string::npos) continue;
        std::string key = line.substr(0, colon);
        std::string value = line.substr(colon + 1);
        pairs[trim(key)] = trim(value);
    }
    return pairs;
}

const char* const ShoutcastYP::DIRECTORY = QUILLWAVE_SHOUTCAST_DIRECTORY;

bool ShoutcastYP::IsMeantBy(const std::string& address) {
    const std::string host = url(address).Host();
    return !host.empty() && host == url(DIRECTORY).Host();
}

ShoutcastYP::ShoutcastYP(std::shared_ptr<Mount> listed_mount, const std::string& listing_at,
                         const std::string& of_directory)
    : YellowPage(std::move(listed_mount), listing_at), directory(of_directory) {}

const YellowPage::Words& ShoutcastYP::words() const {
    static constexpr Words WORDS = {.connection_failed = "Error: Connection failed",
                                    .timed_out = "Error: Connection Timed Out",
                                    .refused = "Error: ",
                                    .refused_status = "Error: ",
                                    .no_answer = "Error: (No icy-response!)",
                                    .no_answer_status = "Error: No icy-response!"};
    return WORDS;
}

std::string ShoutcastYP::log_head() const {
    return "<" + url(directory).Host() + "> [" + mount->Address() + "] ";
}

std::shared_ptr<Request> ShoutcastYP::make_request(Exchange next) {
    return std::make_shared<Request>("http://" + directory + target(next), Request::METHOD_GET, "",
                                     mount->GetAssignedIP(), Request::PROTOCOL_HTTP, VERSION);
}

std::string ShoutcastYP::target(Exchange next) {
    if (port.empty()) port = mount->GetAssignedPort();
    if (port.empty()) port = Config::Get("PortBase", false)->GetValue("8000");
    if (next == Exchange::ADD) return add_target();
    if (next == Exchange::TOUCH) return touch_target();
    return DirectoryForm("/remsrv?id=" + UrlEncode(id, false)).Add("p", port).Text();
}

std::string ShoutcastYP::add_target() const {
    DirectoryForm query("/addsrv?v=1");
    query.Add("br", mount->Bitrate())
        .Add("p", port)
        .Add("m", mount->MaxReceivers())
        .Add("t", mount->Name())
        .Add("g", mount->Genre())
        .Add("url", mount->Website())
        .Add("content", mount->ContentType())
        .Add("sid", mount->GetID());
    const std::string master = mount->RelayAddress();
    if (!master.empty()) query.Add("r", url(master).Host() + ":" + tostring(url(master).Port()));
    return query.Text();
}

std::string ShoutcastYP::touch_target() {
    return DirectoryForm("/tchsrv?id=" + UrlEncode(id, false))
        .Add("sid", mount->GetID())
        .Add("p", port)
        .Add("li", mount->UniqueReceivers())
        .Add("alt", mount->AvgConnectTime())
        .Add("ct", mount->GetMetaData()->title)
        .Add("cm", growth(last_ex_tune_ins, mount->ExTuneIns()))
        .Add("ht", growth(last_tune_ins, mount->TuneIns()))
        .Text();
}

std::string ShoutcastYP::limit() const {
    const std::string type = mount->ContentType();
    if (!is_carried(type)) return type + " is not supported by SHOUTcast!";
    if (mount->MaxReceivers() < 1) return "Unlimited UserMax is not supported by SHOUTcast!";
    return {};
}

// A page that is being removed counts as unlisted at once: no stop waits for this directory.
void ShoutcastYP::starts(Exchange next) {
    if (next == Exchange::TOUCH) return;
    touch_errors = 0;
    listed = false;
}

YellowPage::Answer ShoutcastYP::read_answer(const Request& reply) const {
    const std::vector<char>& bytes = reply.PostData();
    auto pairs = parse_shoutcast_resp(std::string(bytes.begin(), bytes.end()));
    Answer answer{.message = pairs["icy-error"],
                  .code = pairs["icy-error-code"],
                  .id = pairs["icy-id"],
                  .frequency = pairs["icy-tchfrq"]};
    const std::string& response = pairs["icy-response"];
    if (response == "ack") answer.verdict = Answer::Verdict::ACCEPTED;
    if (response == "nak") answer.verdict = Answer::Verdict::REFUSED;
    return answer;
}

void ShoutcastYP::added(const Answer& answer) {
    if (answer.id.empty() || answer.frequency.empty()) {
        status = "Added, error missing ID.";
        return log("add successful, however failed receiving ID and Touch Frequency, quillwave "
                   "cannot continue this session without ID, attemtping to re-add");
    }
    enter_listing(answer.id, decimal(answer.frequency) * MINUTE);
    status = "Added";
    log("added me successfully! (id: " + id + " | tchfrq: " + tostring(Interval()) + ")");
}

// Kept: seconds here, though minutes when it is added. The directory counts on it.
void ShoutcastYP::touched(const Answer& answer) {
    status = "Touched";
    if (answer.frequency.empty()) return log_touch("touched!");
    set_interval(decimal(answer.frequency));
    log_touch("touched! (tchfrq: " + tostring(Interval()) + ")");
}

void ShoutcastYP::removed(const Answer&) {
    status = "Removed";
    log("removed me!");
}
