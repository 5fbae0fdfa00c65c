#include "directory/IcecastYP.h"

#include "config/Config.h"
#include "core/OSTools.h"
#include "directory/DirectoryForm.h"
#include "http/Request.h"
#include "media/Metadata.h"
#include "streaming/Mount.h"

#include <vector>

namespace {
constexpr float VERSION = 1.0F;

// Where listeners find the mount. The host is the operator's own and goes out as it is.
std::string listen_url(const Mount& mount) {
    const std::string host = Config::Get("Hostname", false)->GetValue("localhost");
    const std::string port = Config::Get("PortBase", false)->GetValue("8000");
    return "http://" + host + ":" + UrlEncode(port, false) + UrlEncode(mount.Address(), false);
}

// What encoders say of their sound, "bitrate=128;channels=2", becomes fields as it is.
void add_audio_info(DirectoryForm& form, const std::string& info) {
    for (const std::string& piece : split(info, ';')) {
        const std::vector<std::string> pair = split(piece, '=');
        if (pair.size() == 2) form.AddRaw(pair[0], pair[1]);
    }
}
} // namespace

const YellowPage::Words& IcecastYP::words() const {
    static constexpr Words WORDS = {.connection_failed = "NAK: Connection failed",
                                    .timed_out = "NAK: Connection timed out",
                                    .refused = "NAK: ",
                                    .refused_status = "",
                                    .no_answer = "NAK: (No YPResponse!)",
                                    .no_answer_status = "Error: No YPResponse!"};
    return WORDS;
}

std::string IcecastYP::log_head() const {
    return "<" + mount->Address() + "> [" + address.Host() + "] ";
}

std::shared_ptr<Request> IcecastYP::make_request(Exchange next) {
    auto made = std::make_shared<Request>(address, Request::METHOD_POST, body(next),
                                          mount->GetAssignedIP(), Request::PROTOCOL_HTTP, VERSION);
    made->SetHeader("User-Agent", USER_AGENT);
    made->SetHeader("Cache-Control", "no-cache");
    return made;
}

std::string IcecastYP::body(Exchange next) const {
    if (next == Exchange::ADD) return add_body();
    return next == Exchange::TOUCH ? touch_body() : "action=remove&sid=" + id;
}

std::string IcecastYP::add_body() const {
    DirectoryForm form("action=add");
    form.Add("sn", mount->Name())
        .AddRaw("listenurl", listen_url(*mount))
        .Add("genre", mount->Genre())
        .Add("b", mount->Bitrate())
        .Add("type", mount->ContentType())
        .Add("url", mount->Website())
        .Add("desc", mount->Description())
        .Add("stype", mount->GetMetaData()->codec);
    add_audio_info(form, mount->AudioInfo());
    return form.Text();
}

std::string IcecastYP::touch_body() const {
    const auto metadata = mount->GetMetaData();
    return DirectoryForm("action=touch")
        .AddRaw("sid", id)
        .Add("st", metadata->title)
        .Add("listeners", mount->ReceiverSize())
        .Add("max_listeners", mount->MaxReceivers())
        .Add("alt", mount->AvgConnectTime())
        .Add("cm", mount->ExTuneIns())
        .Add("ht", mount->TuneIns())
        .Add("stype", metadata->codec)
        .Text();
}

YellowPage::Answer IcecastYP::read_answer(const Request& reply) const {
    Answer answer{.message = reply.GetHeader("YPMessage"),
                  .id = reply.GetHeader("SID"),
                  .frequency = reply.GetHeader("TouchFreq")};
    const std::string response = reply.GetHeader("YPResponse");
    if (response == "1") answer.verdict = Answer::Verdict::ACCEPTED;
    if (response == "0") answer.verdict = Answer::Verdict::REFUSED;
    return answer;
}

void IcecastYP::added(const Answer& answer) {
    status = answer.message;
    if (answer.id.empty() || answer.frequency.empty())
        return log("add successful, however failed receiving SID and Touch Frequency, Quillwave "
                   "cannot continue this session without an SID, attemtping to re-add");
    enter_listing(answer.id, decimal(answer.frequency));
    last_touch = 0; // the first touch comes at once
    log("ACK: " + answer.message + " (id: " + id + " | tchfrq: " + tostring(Interval()) + ")");
}

void IcecastYP::touched(const Answer& answer) {
    status = answer.message;
    if (!answer.frequency.empty()) set_interval(decimal(answer.frequency));
    log_touch("ACK: " + answer.message + " (tchfrq: " + tostring(Interval()) + ")");
}

void IcecastYP::removed(const Answer& answer) {
    status = answer.message;
    log("ACK: " + answer.message);
}
