#include "media/AacBuffer.h"

#include "media/Bytes.h"
#include "media/FrameScan.h"

#include <cstdint>
#include <stdexcept>
#include <utility>

AacBuffer::AacBuffer(std::shared_ptr<MediaReader> source)
    : PacketBuffer(std::move(source), SIZE_LIMIT) {}

AdtsHeader AacBuffer::ParseFrame(const std::vector<char>& bytes, std::size_t position) {
    if (position > bytes.size()) throw std::out_of_range("ADTS frame begins past the end");
    const auto header = parse_adts_header(unsigned_bytes(bytes).subspan(position));
    if (!header) throw std::out_of_range("ADTS header runs past the end");
    return *header;
}

bool AacBuffer::find_first_frame() {
    const auto start = find_frame_start(read_buffer, [](std::span<const char> bytes) {
        return is_adts_frame_start(unsigned_bytes(bytes).first<2>());
    });
    if (start) skip_buffer(*start);
    return start.has_value();
}

bool AacBuffer::read_packet() {
    if (read_fill() <= AdtsHeader::SIZE || !find_first_frame()) return false;
    // Dropping what precedes the frame may leave less than a header.
    const auto header = parse_adts_header(unsigned_bytes(read_buffer.Data()));
    if (!header || header->frame_length <= 0) return false;
    std::vector<char> frame = advance_buffer(static_cast<std::size_t>(header->frame_length));
    if (frame.empty()) return false;
    add(std::make_shared<BufferEntry>(std::move(frame)));
    take_format(*header);
    return true;
}

void AacBuffer::take_format(const AdtsHeader& header) {
    if (GetFrameTime() != 0.0 || header.sampling_rate == 0) return;
    set_audio_format(header.sampling_rate, static_cast<std::uint16_t>(header.channels),
                     1000.0 / header.sampling_rate * header.samples_per_frame);
}
