#include "web/ListenerRow.h"

#include "http/Request.h"
#include "streaming/Mount.h"
#include "streaming/Receiver.h"

#include <utility>

ListenerRow::ListenerRow(const std::shared_ptr<Mount>& its_mount,
                         std::shared_ptr<Receiver> its_receiver)
    : mount(its_mount), receiver(std::move(its_receiver)), address(mount->Address()),
      hostname(receiver->GetHostname()), connect_time(receiver->ConnectTime()),
      bytes_sent(receiver->BytesSent()), bitrate(receiver->GetBitrate(false)),
      recent_bitrate(receiver->GetBitrate(true)) {
    const auto request = receiver->GetRequest();
    user = request->User();
    user_agent = request->GetHeader("User-Agent");
}

ListenerRows listener_rows(const std::vector<std::shared_ptr<Mount>>& mounts) {
    ListenerRows rows;
    for (const auto& mount : mounts)
        for (auto& receiver : mount->GetReceiverList())
            rows.emplace_back(mount, std::move(receiver));
    return rows;
}
