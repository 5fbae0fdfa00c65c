#pragma once

#include "media/MediaReader.h"

#include <atomic>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

// A stream with an ICY metadata block after every `meta_interval` bytes of audio. With an interval
// of 0 the bytes pass as they are.
// Owned and called as MediaReader says; SetMetaInterval belongs to the mount thread.
class ICYReader : public MediaReader {
public:
    ICYReader(std::shared_ptr<Socket> source, unsigned int interval);

    int Read(char* buffer, unsigned long long offset, unsigned long long length) override;
    // No blocks from here on, until SetMetaInterval is called.
    void Reset() override;

    unsigned int MetaInterval() const { return meta_interval; }
    void SetMetaInterval(unsigned int interval) { meta_interval = interval; }
    // Bytes of all blocks so far, their length bytes included.
    std::uint64_t MetaBytesRecieved() const { return meta_bytes; }

private:
    unsigned long long until_block(unsigned long long length) const;
    int receive_audio(char* buffer, unsigned long long length);
    int take_block();
    int read_meta_data();
    int read_block();
    int receive_block(std::vector<char>& block, time_t started);
    bool take_words(std::vector<char> block);
    bool parse_meta_data(const std::string& words);

    std::atomic<unsigned int> meta_interval;
    std::uint64_t since_meta = 0; // bytes of audio since the last block
    std::atomic<std::uint64_t> meta_bytes{0};
};
