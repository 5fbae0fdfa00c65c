#pragma once

#include "media/AdtsHeader.h"
#include "media/FlvScript.h"
#include "media/MediaWriter.h"
#include "media/MpegHeader.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

// The codes of an FLV audio tag.
enum class FLVSoundFormat : unsigned char { MP3 = 2, AAC = 10 };
enum class FLVSoundRate : unsigned char { HZ_5500 = 0, HZ_11025 = 1, HZ_22050 = 2, HZ_44100 = 3 };
enum class FLVSoundSize : unsigned char { BITS_8 = 0, BITS_16 = 1 };
enum class FLVSoundType : unsigned char { MONO = 0, STEREO = 1 };

// Wraps the frames of an MPEG or AAC stream as an FLV file without end: one audio tag for each
// packet, which is one frame, and script tags for metadata.
// Owned and called as MediaWriter says.
class FLVWriter : public MediaWriter {
public:
    // All but the format is refined by the first frame.
    FLVWriter(std::shared_ptr<Response> to, FLVSoundFormat format, FLVSoundRate rate,
              FLVSoundSize size, FLVSoundType type);

    // Takes the packet whole, whatever `offset` and `length` say. A packet that is no frame is
    // passed over, and its length returned.
    unsigned long Write(const SharedBytes& data, unsigned long offset,
                        unsigned long length) override;

private:
    bool take_format(std::string_view frame, std::string& config);
    std::string take_aac_format(const AdtsHeader& header);
    void take_mpeg_format(const MpegHeader& header);
    unsigned long send_header();
    unsigned long send_audio_tag(std::string_view data, bool is_config);
    unsigned long send_meta_tag();
    unsigned long send_script(const std::string& name, const flv::ScriptMap& map);
    unsigned long send(const std::string& bytes);
    char sound_flags() const;

    std::uint32_t timestamp = 0;   // milliseconds, of the next tag
    int frame_ms = 0;              // how far a tag moves the timestamp
    int sample_rate = 0;           // for the metadata
    int channels = 0;              // for the metadata
    unsigned char header_skip = 0; // bytes of ADTS header to cut off each frame
    bool header_sent = false;
    FLVSoundFormat sound_format;
    FLVSoundRate sound_rate;
    FLVSoundSize sound_size;
    FLVSoundType sound_type;
};
