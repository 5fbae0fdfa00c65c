#pragma once

#include "media/MediaReader.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class Request;
struct ChunkLine;

// The body of an HTTP request or reply (RFC 9112), plain or chunked. A chunk's size line may carry
// metadata as an extension.
// Owned and called as MediaReader says; SetRequest belongs to the mount thread.
class HTTPReader : public MediaReader {
public:
    // A size line, with what ends the chunk before it, stays below this many bytes.
    static constexpr int LONGEST_LINE = 1024;

    // Reads from the request's socket, chunked if its Transfer-Encoding says so.
    explicit HTTPReader(const std::shared_ptr<Request>& request);

    int Read(char* buffer, unsigned long long offset, unsigned long long length) override;
    void Reset() override;

    // Continues with the body of another request, whichever way that is framed.
    void SetRequest(const std::shared_ptr<Request>& request);

private:
    int receive_body(char* buffer, unsigned long long length);
    int next_chunk();
    int get_next_chunk_size();
    int take_into_line(int length);
    int take_line(const ChunkLine& found);
    void parse_meta_data(const std::string& words);

    bool chunked = false;
    std::vector<char> line; // the size line, as far as it has come
    int line_fill = 0;
    std::uint64_t chunk_left = 0; // bytes of the current chunk still to come
};
