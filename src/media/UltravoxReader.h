#pragma once

#include "media/MediaReader.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

// A first stage of reading streams in Ultravox frames: it tells the log of the frames that it sees,
// and delivers no audio. Nobody makes one yet.
// Owned and called as MediaReader says.
class UltravoxReader : public MediaReader {
public:
    explicit UltravoxReader(std::shared_ptr<Socket> source);

    using MediaReader::Read;
    // Kept: not the Read of a MediaReader, which fails here as there is no audio yet. Receives
    // until the source ends, fails or is silent, whatever the arguments, and fails.
    int Read(char* buffer, int offset, int length);
    void Reset() override {}

    static std::string Title() { return "Ultravox Title"; }
    static std::string Url() { return "https://quillwave.example"; }

private:
    static constexpr std::size_t BUFFER_SIZE = 8192;

    std::uint32_t bytes_present() const;
    unsigned byte_at(std::uint32_t place) const;
    bool find_sync();
    bool parse_frame();
    void parse_ultravox();
    void log_metadata() const;

    const std::shared_ptr<Socket> socket;
    std::array<char, BUFFER_SIZE> input{};
    std::uint32_t fill = 0;     // bytes received so far
    std::uint32_t position = 0; // of the next frame in `input`
};
