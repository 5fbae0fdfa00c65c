#include "media/ICYReader.h"

#include "core/Clock.h"
#include "core/Log.h"
#include "media/IcyMetadata.h"
#include "net/Socket.h"

#include <new>
#include <optional>
#include <utility>
#include <vector>

namespace {
constexpr int BLOCK_UNIT = 16; // bytes for each count of a block's length byte
constexpr double BLOCK_SECONDS = 30;
} // namespace

ICYReader::ICYReader(std::shared_ptr<Socket> source, unsigned int interval)
    : MediaReader(std::move(source)), meta_interval(interval) {}

void ICYReader::Reset() {
    meta_interval = 0;
    since_meta = 0;
}

int ICYReader::Read(char* buffer, unsigned long long offset, unsigned long long length) {
    unsigned long long delivered = 0;
    while (delivered < length) {
        const unsigned long long wanted = until_block(length - delivered);
        const int received = receive_audio(buffer + offset + delivered, wanted);
        if (received < 1) return received;
        delivered += wanted;
        if (meta_interval == 0 || since_meta != meta_interval) continue;
        const int block = take_block();
        if (block < 1) return block;
    }
    return static_cast<int>(delivered);
}

// How much of `length` comes before the next block.
unsigned long long ICYReader::until_block(unsigned long long length) const {
    const unsigned long long left = meta_interval - since_meta;
    return meta_interval != 0 && length >= left ? left : length;
}

// All of `length`, or the result that prevented it.
int ICYReader::receive_audio(char* buffer, unsigned long long length) {
    unsigned long long done = 0;
    int received = IO_END;
    while (done < length) {
        received = receive(buffer + done, static_cast<int>(length - done), 0);
        if (received < 1) return received;
        done += static_cast<unsigned>(received);
        since_meta += static_cast<unsigned>(received);
        set_transfer_diff(static_cast<unsigned>(received));
    }
    return received;
}

int ICYReader::take_block() {
    const int taken = read_meta_data();
    if (taken < 1) {
        LogWrite(2) << "<" << GetIP() << "> ACK Couldn't read meta packet!" << std::endl;
        return taken;
    }
    meta_bytes += static_cast<unsigned>(taken);
    set_transfer_diff(static_cast<unsigned>(taken));
    return taken;
}

// One block: how many bytes it took, or a result below 1.
int ICYReader::read_meta_data() {
    try {
        return read_block();
    } catch (const std::bad_alloc&) {
        LogWrite(2) << "Out of Memory: Unabled to allocate memory for meta data" << std::endl;
        return IO_FAILED;
    }
}

int ICYReader::read_block() {
    const time_t started = now();
    since_meta = 0;
    char units = 0;
    const int received = receive(&units, 1, 0);
    if (received != 1) return received;
    const int length = static_cast<unsigned char>(units) * BLOCK_UNIT;
    if (length == 0) return 1;

    // Kept: the former record ends where a block begins, even one that never gets complete. The
    // audio from here on belongs to what the block was to say.
    metadata.store(std::make_shared<METADATA>());
    std::vector<char> block(static_cast<std::size_t>(length));
    const int result = receive_block(block, started);
    if (result < 1) return result;
    return take_words(std::move(block)) ? length + 1 : IO_FAILED;
}

// Fills `block`; the result that prevented it otherwise.
int ICYReader::receive_block(std::vector<char>& block, time_t started) {
    std::size_t done = 0;
    int received = IO_END;
    while (done < block.size()) {
        received = receive(block.data() + done, static_cast<int>(block.size() - done), 0);
        if (received < 1) return received;
        if (difftime(now(), started) > BLOCK_SECONDS) return IO_FAILED;
        done += static_cast<unsigned>(received);
    }
    return received;
}

bool ICYReader::take_words(std::vector<char> block) {
    const std::optional<std::string> words = icy_metadata::block_words(block);
    auto unread = std::make_shared<METADATA>();
    unread->raw = std::move(block);
    metadata.store(std::move(unread));
    return words && parse_meta_data(*words);
}

bool ICYReader::parse_meta_data(const std::string& words) {
    std::shared_ptr<METADATA> record = icy_metadata::parse_block(words);
    if (!record) return false;
    metadata.store(std::move(record));
    return true;
}
