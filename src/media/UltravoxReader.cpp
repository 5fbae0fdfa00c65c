#include "media/UltravoxReader.h"

#include "core/Log.h"
#include "net/Socket.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

// Frame, by byte offset from the sync:
//   0   1        sync, 'Z'
//   1   1        not looked at
//   2   2        message type, in the low 12 bits
//   4   2        payload length, most significant byte first and signed
//   6   length   payload; that of metadata begins with 6 bytes before the text, which ends with NUL
//   ..  1        end
constexpr char SYNC = 'Z';
constexpr std::uint32_t TYPE = 2;
constexpr std::uint32_t LENGTH = 4;
constexpr std::uint32_t TEXT = 12;
constexpr int AROUND_PAYLOAD = 7;
constexpr std::uint32_t NOT_LOOKED_AT = 5; // a sync behind which fewer bytes lie is not seen
constexpr unsigned METADATA_TYPE = 0x902;

} // namespace

UltravoxReader::UltravoxReader(std::shared_ptr<Socket> source) : socket(std::move(source)) {}

// Kept: each receive writes at the start of the buffer, while the frames are counted on from there,
// so that only what comes in one piece is read rightly. The parser is not finished.
int UltravoxReader::Read(char*, int, int) {
    for (;;) {
        const int received =
            socket->Recv(input.data(), static_cast<int>(BUFFER_SIZE), 0, READ_TIMEOUT);
        if (received < 1) return IO_FAILED;
        fill += static_cast<std::uint32_t>(received);
        parse_ultravox();
    }
}

// More may have been received than the buffer holds.
std::uint32_t UltravoxReader::bytes_present() const {
    return std::min(fill, static_cast<std::uint32_t>(BUFFER_SIZE));
}

unsigned UltravoxReader::byte_at(std::uint32_t place) const {
    return static_cast<unsigned char>(input[place]);
}

bool UltravoxReader::find_sync() {
    const std::uint32_t present = bytes_present();
    if (present < NOT_LOOKED_AT || position >= present - NOT_LOOKED_AT) return false;
    const char* end = input.data() + present - NOT_LOOKED_AT;
    const char* found = std::find<const char*>(input.data() + position, end, SYNC);
    if (found == end) return false;
    const auto place = static_cast<std::uint32_t>(found - input.data());
    if (place == position) return true;
    LogWrite(2) << "Read Head moved: " << place - position << std::endl;
    position = place;
    return true;
}

void UltravoxReader::parse_ultravox() {
    while (find_sync() && parse_frame()) {
    }
}

// False when there is nothing to go on with: the frame is not whole, or leads back to where the
// parser has been, which would never end.
bool UltravoxReader::parse_frame() {
    const unsigned type = (byte_at(position + TYPE) & 0xF) << 8 | byte_at(position + TYPE + 1);
    // Kept: a length above 32767 is negative. The parser is not finished.
    const auto length =
        static_cast<std::int16_t>(byte_at(position + LENGTH) << 8 | byte_at(position + LENGTH + 1));
    if (position + static_cast<std::uint32_t>(length) > fill) return false;
    if (type == METADATA_TYPE) log_metadata();
    LogWrite(2) << length << std::endl;
    const int step = length + AROUND_PAYLOAD;
    position += static_cast<std::uint32_t>(step);
    return step > 0;
}

void UltravoxReader::log_metadata() const {
    const std::uint32_t present = bytes_present();
    const std::uint32_t start = std::min(position + TEXT, present);
    const char* text = input.data() + start;
    LogWrite(2) << log_text(std::string(text, strnlen(text, present - start))) << std::endl;
}
