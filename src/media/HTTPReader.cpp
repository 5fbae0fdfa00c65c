#include "media/HTTPReader.h"

#include "core/Clock.h"
#include "core/OSTools.h"
#include "http/Request.h"
#include "media/ChunkHeader.h"
#include "media/IcyMetadata.h"
#include "net/Socket.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

namespace {
constexpr double LINE_SECONDS = 15;
} // namespace

HTTPReader::HTTPReader(const std::shared_ptr<Request>& request) : line(LONGEST_LINE) {
    SetRequest(request);
}

void HTTPReader::SetRequest(const std::shared_ptr<Request>& request) {
    std::string encoding = request->GetHeader("Transfer-Encoding");
    chunked = tolower(encoding) == "chunked";
    SetSocket(request->Socket());
}

void HTTPReader::Reset() {
    chunk_left = 0;
    line_fill = 0;
}

int HTTPReader::Read(char* buffer, unsigned long long offset, unsigned long long length) {
    if (chunk_left == 0) {
        if (!chunked)
            chunk_left = length;
        else if (const int header = next_chunk(); header < 1)
            return header;
    }
    unsigned long long delivered = 0;
    while (delivered < length) {
        const unsigned long long wanted =
            std::min<unsigned long long>(length - delivered, chunk_left);
        const int received = receive_body(buffer + offset + delivered, wanted);
        if (received < 1) return received;
        delivered += wanted;
        if (!chunked) break;
        if (chunk_left > 0) continue;
        if (const int header = next_chunk(); header < 1) return header;
    }
    return static_cast<int>(delivered);
}

// All of `length`, or the result that prevented it.
int HTTPReader::receive_body(char* buffer, unsigned long long length) {
    unsigned long long done = 0;
    int received = IO_END;
    while (done < length) {
        received = receive(buffer + done, static_cast<int>(length - done), 0);
        if (received < 1) return received;
        done += static_cast<unsigned>(received);
        chunk_left -= static_cast<unsigned>(received);
        set_transfer_diff(static_cast<unsigned>(received));
    }
    return received;
}

int HTTPReader::next_chunk() {
    const int taken = get_next_chunk_size();
    if (taken > 0) set_transfer_diff(static_cast<unsigned>(taken));
    return taken;
}

// Reads one size line: how many bytes it took, IO_END for the last chunk's, or a failing result.
// The line is peeked at, so that nothing behind it is taken; what is not yet a line is taken into
// `line`, so that the next peek waits for more.
int HTTPReader::get_next_chunk_size() {
    const time_t start = now();
    while (true) {
        // Kept: never true, as `start` lies before now. The receive time-out ends a silent peer,
        // and one that sends its line slowly is waited for.
        if (difftime(start, now()) >= LINE_SECONDS) return IO_AGAIN;
        const int peeked = receive(line.data() + line_fill, LONGEST_LINE - line_fill, MSG_PEEK);
        if (peeked < 1) return peeked;
        const std::string_view come(line.data(), static_cast<std::size_t>(line_fill + peeked));
        if (const std::optional<ChunkLine> found = find_chunk_line(come)) return take_line(*found);
        if (const int taken = take_into_line(peeked); taken < 1) return taken;
        if (line_fill >= LONGEST_LINE) return IO_FAILED;
    }
}

// Receives what was peeked at before, behind what `line` holds.
int HTTPReader::take_into_line(int length) {
    const int taken = receive(line.data() + line_fill, length, 0);
    if (taken > 0) line_fill += taken;
    return taken;
}

int HTTPReader::take_line(const ChunkLine& found) {
    const int length = static_cast<int>(found.end);
    if (length >= LONGEST_LINE) return IO_FAILED;
    while (line_fill < length)
        if (const int taken = take_into_line(length - line_fill); taken < 1) return taken;
    line_fill = 0;
    const char* text = line.data();
    const ChunkHeader header = parse_chunk_header({text + found.text_start, text + found.text_end});
    parse_meta_data(header.extension);
    chunk_left = header.size;
    return chunk_left == 0 ? IO_END : length;
}

void HTTPReader::parse_meta_data(const std::string& words) {
    if (std::shared_ptr<METADATA> record = icy_metadata::parse_chunk_extension(words))
        metadata.store(std::move(record));
}
