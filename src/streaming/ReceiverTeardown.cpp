// The end of a connection.

#include "http/Request.h"
#include "http/Response.h"
#include "media/MediaWriter.h"
#include "media/PacketBuffer.h"
#include "net/Socket.h"
#include "streaming/Mount.h"
#include "streaming/Receiver.h"
#include "streaming/ReceiverList.h"
#include "web/WebPanel.h"

// Takes a slice, or as many as the last bytes need to leave; every step may come again.
void Receiver::tear_down() {
    become(ENDING);
    // On which no listener is registered then.
    if (after_answer != Then::NOTHING || inquiry) forget_mount();
    after_answer = Then::NOTHING;
    inquiry.reset();
    drop_page();
    packets.Clear();
    leave_buffer();
    leave_mount();
    if (!farewell_is_sent()) return;
    stop_watching();
    // Closed here and now: who still holds the request must not keep the player waiting.
    socket->Close();
    socket.reset();
    become(FINISHED);
    leave_list();
}

// Takes the listener off the mount that it is registered on, which is the one it asked for.
void Receiver::leave_mount() {
    if (const std::shared_ptr<Mount> registered = GetMount())
        registered->UnregisterReceiver(getptr());
    set_mounts(nullptr, nullptr);
}

// An answer leaves whole; of a stream, and of a kicked connection, goes what the socket takes.
bool Receiver::farewell_is_sent() {
    if (!response) return true;
    if (!body_ended) response->Disconnect();
    body_ended = true;
    if (response->SendBuffer() == IO_AGAIN) return false;
    if (!writer && !kicked && response->GetBytesBuffered() > 0) return false;
    writer.reset();
    assign(response, std::shared_ptr<Response>());
    return true;
}

void Receiver::leave_list() {
    left_list = true;
    ReceiverList::Remove(getptr());
}
