#include "media/MpegBuffer.h"

#include "media/Bytes.h"
#include "media/FrameScan.h"

#include <stdexcept>
#include <utility>

MpegBuffer::MpegBuffer(std::shared_ptr<MediaReader> source)
    : PacketBuffer(std::move(source), SIZE_LIMIT) {}

MpegHeader MpegBuffer::ParseFrame(const std::vector<char>& bytes, std::size_t position) {
    if (position > bytes.size()) throw std::out_of_range("MPEG frame begins past the end");
    const auto header = parse_mpeg_header(unsigned_bytes(bytes).subspan(position));
    if (!header) throw std::out_of_range("MPEG header runs past the end");
    return *header;
}

bool MpegBuffer::find_first_frame() {
    const auto start = find_frame_start(read_buffer, [](std::span<const char> bytes) {
        return is_mpeg_frame_start(unsigned_bytes(bytes).first<3>());
    });
    if (start) skip_buffer(*start);
    return start.has_value();
}

bool MpegBuffer::read_packet() {
    if (!find_first_frame()) return false;
    const auto header = parse_mpeg_header(unsigned_bytes(read_buffer.Data()));
    if (!header) return false;
    // Empty as long as the frame is not whole, and for free format, whose length nobody tells.
    std::vector<char> frame = advance_buffer(header->FrameLength());
    if (frame.empty()) return false;
    add(std::make_shared<BufferEntry>(std::move(frame)));
    take_format(*header);
    return true;
}

void MpegBuffer::take_format(const MpegHeader& header) {
    if (GetFrameTime() != 0.0) return;
    set_audio_format(header.sampling_rate, header.stereo ? 2 : 1,
                     1000.0 / header.sampling_rate * header.samples_per_frame);
}
