// Answers on their way to the peer, and what follows once they have left.

#include "http/Request.h"
#include "http/Response.h"
#include "media/MediaWriter.h"
#include "net/Socket.h"
#include "streaming/Mount.h"
#include "streaming/Receiver.h"

#include <utility>

// A new answer to the current request; an empty reason stands for the code's own text.
Response& Receiver::start_answer(unsigned short code, const std::string& reason) {
    assign(response, std::make_shared<Response>(request, code, reason));
    return *response;
}

// After an answer to a valid request: the mount is let go, and the connection kept if the client
// wants that and the answer was in HTTP.
void Receiver::conclude() {
    forget_mount();
    if (request->KeepAlive() && response->GetProtocol() == Response::HTTP)
        answer_then(Then::NEXT_REQUEST);
    else
        end_answer();
}

void Receiver::answer_then(Then next) {
    after_answer = next;
    become(RUNNING);
    finish_answer();
}

// Goes on when all of the answer has left; called again with later slices until then. A page may
// have been answered without a response, and an answer that left at once has nothing to flush. One
// that is kicked goes no further: the teardown of this slice sees to the rest.
void Receiver::finish_answer() {
    if (kicked) return;
    if (response && response->Flush() == IO_AGAIN) return;
    const Then next = std::exchange(after_answer, Then::NOTHING);
    if (response && response->Failed()) {
        forget_mount();
        become(ENDING);
    } else if (next == Then::NEXT_REQUEST) {
        next_request();
    } else {
        hand_over();
    }
}

// The connection ends with this answer; the teardown sees to what did not leave at once.
void Receiver::end_answer() {
    if (response) response->Flush();
    become(ENDING);
}

// What the last request left is gone before the next one is read: a mount that stayed would make
// of any bare line a source that has logged in.
void Receiver::next_request() {
    forget_mount();
    assign(response, std::shared_ptr<Response>());
    assign(request, std::make_shared<Request>(socket));
    become(READING);
}

void Receiver::forget_mount() {
    set_mounts(nullptr, nullptr);
    vip = false;
    time_limit = 0;
    buffer_index = -1;
    writer.reset();
    next_metadata.reset();
    assign(metadata, std::shared_ptr<METADATA>());
}
