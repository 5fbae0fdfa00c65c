// Titles by URL: what source clients call to say which song is on.

#include "core/OSTools.h"
#include "http/Request.h"
#include "http/Response.h"
#include "media/Metadata.h"
#include "streaming/Mount.h"
#include "streaming/MountList.h"
#include "web/WebPanel.h"

#include <algorithm>
#include <string>
#include <vector>

namespace {

constexpr const char* TITLE_TAKEN =
    "<?xml version=\"1.0\"?>\r\n<iceresponse><message>Metadata update successful</message>"
    "<return>1</return></iceresponse>";

bool is_title_update(const Request& request) { return request.GetQuery("mode") == "updinfo"; }

// A line end or a NUL would cut the title short in feeds and logs.
std::string without_control_bytes_in(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char byte) { return static_cast<unsigned char>(byte) < 0x20; },
        ' ');
    return text;
}

// Kept: the apostrophe becomes the one of Windows-1252, for it would end the title in an ICY block.
// A title in UTF-8 is no UTF-8 any more then.
std::string song_of(const Request& request) {
    std::string song = without_control_bytes_in(request.GetQuery("song"));
    std::replace(song.begin(), song.end(), '\'', '\x92');
    return song;
}

std::shared_ptr<METADATA> metadata_of(const Request& request) {
    auto metadata = std::make_shared<METADATA>();
    metadata->title = song_of(request);
    metadata->url = without_control_bytes_in(request.GetQuery("url"));
    return metadata;
}

} // namespace

// The login of a source in query `pass`, as "user:password", stands for that of a browser.
int WebPanel::take_title_from_source() {
    const std::vector<std::string> login = split(request->GetQuery("pass"), ':');
    if (login.size() < 2 || !is_title_update(*request)) return GO_ON;
    const auto mount = MountList::GetActiveMountCredentialsByUsername(login[0], login[1]);
    if (!mount) return GO_ON;
    mount->SetMetaData(metadata_of(*request));
    response = std::make_shared<Response>(request, 200, "");
    response->SetHeader("Content-Length", "0");
    response->SendHeader("");
    return ANSWERED;
}

// Kept: silence about a mount that is not the user's. Source clients do not read the answer.
int WebPanel::take_title_from_manager() {
    const std::string address = request->GetQuery("mount");
    if (address.find('/') == std::string::npos || !is_title_update(*request)) return GO_ON;
    const std::shared_ptr<Mount> mount = get_mount_by_address(address);
    if (!mount) return ANSWERED;
    mount->SetMetaData(metadata_of(*request));
    response = std::make_shared<Response>(request, 200, "");
    response->SetHeader("Content-Type", "text/xml");
    response->SendHeader(TITLE_TAKEN);
    return ANSWERED;
}
