#include "streaming/ReceiverOutput.h"

#include "core/OSTools.h"
#include "http/Request.h"
#include "http/Response.h"
#include "media/FLVWriter.h"
#include "media/ICYWriter.h"
#include "streaming/Mount.h"

namespace {

const std::string SHOUTCAST_AGENT = "Shoutcast Server ";

bool contains(const std::string& text, const char* word) {
    return text.find(word) != std::string::npos;
}

void forbid_caching(Response& response) {
    response.SetHeader("Cache-Control", "max-age=0, no-cache, no-store");
    response.SetHeader("Expires", "Mon, 25 Jan 2002 10:11:57 GMT");
    response.SetHeader("Pragma", "no-cache");
}

const char* public_flag(const Mount& mount) { return mount.PublicRelays() ? "1" : "0"; }

std::shared_ptr<MediaWriter> open_flv(const std::shared_ptr<Response>& response,
                                      const std::string& content_type) {
    response->SetHeader("Content-Type", "video/x-flv");
    forbid_caching(*response);
    response->SendHeader("");
    const FLVSoundFormat format =
        contains(content_type, "aacp") ? FLVSoundFormat::AAC : FLVSoundFormat::MP3;
    return std::make_shared<FLVWriter>(response, format, FLVSoundRate::HZ_44100,
                                       FLVSoundSize::BITS_16, FLVSoundType::STEREO);
}

std::shared_ptr<MediaWriter> open_icecast(const std::shared_ptr<Response>& response,
                                          const Mount& mount, const std::string& content_type) {
    response->SetHeader("Content-Type", content_type);
    forbid_caching(*response);
    response->SetHeader("ice-name", mount.Name());
    response->SetHeader("ice-genre", mount.Genre());
    response->SetHeader("ice-url", mount.Website());
    response->SetHeader("ice-public", public_flag(mount));
    response->SetHeader("ice-bitrate", mount.Bitrate());
    response->SetHeader("ice-description", mount.Description());
    response->SetHeader("ice-audio-info", mount.AudioInfo());
    response->SendHeader("");
    return std::make_shared<ICYWriter>(response, 0U, false, !contains(content_type, "ogg"));
}

std::shared_ptr<MediaWriter> open_icy(const std::shared_ptr<Response>& response,
                                      const Request& request, const Mount& mount,
                                      const std::string& content_type) {
    if (request.GetPreferredProtocol() == Request::PROTOCOL_ICY)
        response->SetProtocol(Response::ICY, 1.0F);
    response->SetHeader("icy-name", mount.Name());
    response->SetHeader("icy-genre", mount.Genre());
    response->SetHeader("icy-url", mount.Website());
    response->SetHeader("content-type", content_type);
    response->SetHeader("icy-pub", public_flag(mount));
    response->SetHeader("icy-br", mount.Bitrate());
    const std::string audio_info = mount.AudioInfo();
    if (!audio_info.empty()) response->SetHeader("ice-audio-info", audio_info);
    const bool wants_metadata = request.GetHeader("Icy-MetaData") == "1";
    const unsigned int interval = wants_metadata ? mount.MetaInterval() : 0;
    if (interval != 0) response->SetHeader("icy-metaint", tostring(interval));
    response->SendHeader("");
    const bool shoutcast_client = request.GetHeader("User-Agent").starts_with(SHOUTCAST_AGENT);
    return std::make_shared<ICYWriter>(response, interval, shoutcast_client, false);
}

} // namespace

StreamStyle choose_stream_style(bool wants_flv, const std::string& content_type,
                                const std::string& path, const std::string& accept_encoding) {
    if (wants_flv && (contains(content_type, "aacp") || contains(content_type, "mpeg")))
        return StreamStyle::FLV;
    if (path != "/" && (contains(content_type, "ogg") || accept_encoding == "chunked"))
        return StreamStyle::ICECAST;
    return StreamStyle::ICY;
}

ListenerOutput open_listener_output(const std::shared_ptr<Request>& request, const Mount& mount,
                                    bool admitted_as_flv) {
    const std::string content_type = mount.ContentType();
    const bool wants_flv = admitted_as_flv || !request->GetQuery("flv").empty();
    ListenerOutput output;
    output.response = std::make_shared<Response>(request, 200, "");
    switch (choose_stream_style(wants_flv, content_type, request->Path(),
                                request->GetHeader("Accept-Encoding"))) {
    case StreamStyle::FLV:
        output.writer = open_flv(output.response, content_type);
        break;
    case StreamStyle::ICECAST:
        output.writer = open_icecast(output.response, mount, content_type);
        break;
    case StreamStyle::ICY:
        output.writer = open_icy(output.response, *request, mount, content_type);
        break;
    }
    return output;
}
