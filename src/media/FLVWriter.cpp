#include "media/FLVWriter.h"

#include "core/Version.h"
#include "http/Response.h"
#include "media/Bytes.h"
#include "media/FlvScript.h"
#include "media/FlvTag.h"

#include <optional>
#include <utility>

namespace {
constexpr bool HAS_VIDEO = false;
constexpr bool HAS_AUDIO = true;
constexpr char AAC_CONFIG = 0;
constexpr char AAC_RAW = 1;
const char* const CREATED_BY =
    "Quillwave Distributed Network Media Server/" QUILLWAVE_VERSION QUILLWAVE_CODE_NAME
    " (" QUILLWAVE_PLATFORM ")";

FLVSoundRate rate_code(int sample_rate) {
    switch (sample_rate) {
    case 44100:
        return FLVSoundRate::HZ_44100;
    case 22050:
        return FLVSoundRate::HZ_22050;
    case 11025:
        return FLVSoundRate::HZ_11025;
    default:
        return FLVSoundRate::HZ_5500;
    }
}

// Whole milliseconds that a frame plays, cut; 0 when the rate is unknown.
int milliseconds(int samples, int sample_rate) {
    if (sample_rate == 0) return 0;
    return static_cast<int>(1000.0F / static_cast<float>(sample_rate) *
                            static_cast<float>(samples));
}

int aac_channels(unsigned channels) {
    if (channels >= 1 && channels <= 6) return static_cast<int>(channels);
    return channels == 7 ? 8 : -1;
}

// AudioSpecificConfig (ISO 14496-3): object type, sampling index, channels.
// Kept: the object type is the ADTS profile as read, one less than the standard counts.
std::string aac_config(const AdtsHeader& header) {
    const unsigned first = header.profile << 3 | header.sampling_index >> 1;
    const unsigned second = header.sampling_index << 7 | (header.channels & 15) << 3;
    return {static_cast<char>(first & 0xFF), static_cast<char>(second & 0xFF)};
}

flv::ScriptMap as_script(const std::map<std::string, std::string>& texts) {
    return {texts.begin(), texts.end()};
}
} // namespace

FLVWriter::FLVWriter(std::shared_ptr<Response> to, FLVSoundFormat format, FLVSoundRate rate,
                     FLVSoundSize size, FLVSoundType type)
    : MediaWriter(std::move(to)), sound_format(format), sound_rate(rate), sound_size(size),
      sound_type(type) {}

unsigned long FLVWriter::Write(const SharedBytes& data, unsigned long, unsigned long) {
    const std::string_view frame(data->data(), data->size());
    std::string config;
    if (!take_format(frame, config) || frame.size() <= header_skip) return frame.size();
    unsigned long sent = 0;
    if (!header_sent) {
        sent += send_header();
        if (!config.empty()) sent += send_audio_tag(config, true);
        header_sent = true;
    }
    sent += send_audio_tag(frame, false);
    if (has_words()) sent += send_meta_tag();
    return sent;
}

// Reads the format off the first frame, with the decoder's config for AAC. False when this is no
// frame.
bool FLVWriter::take_format(std::string_view frame, std::string& config) {
    const auto bytes = unsigned_bytes(frame);
    if (sound_format == FLVSoundFormat::AAC) {
        const auto header = parse_adts_header(bytes);
        if (header && !header_sent) config = take_aac_format(*header);
        return header.has_value();
    }
    const auto header = parse_mpeg_header(bytes);
    if (header && !header_sent) take_mpeg_format(*header);
    return header.has_value();
}

std::string FLVWriter::take_aac_format(const AdtsHeader& header) {
    header_skip = static_cast<unsigned char>(header.HeaderSize());
    sample_rate = header.sampling_rate;
    channels = aac_channels(header.channels);
    frame_ms = milliseconds(AdtsHeader::SAMPLES_PER_FRAME, sample_rate);
    return aac_config(header);
}

// Kept: a millisecond less than a frame plays. Players get the sound a little early, never late.
void FLVWriter::take_mpeg_format(const MpegHeader& header) {
    sample_rate = header.sampling_rate;
    sound_rate = rate_code(sample_rate);
    sound_type = header.stereo ? FLVSoundType::STEREO : FLVSoundType::MONO;
    channels = header.stereo ? 2 : 1;
    frame_ms = sample_rate == 0 ? 0 : milliseconds(header.samples_per_frame, sample_rate) - 1;
}

// Returns the bytes that were buffered, 0 on failure; so do all of these.
unsigned long FLVWriter::send(const std::string& bytes) {
    return response->Buffer(bytes) == 0 ? 0 : bytes.size();
}

unsigned long FLVWriter::send_header() { return send(flv::file_header(HAS_VIDEO, HAS_AUDIO)); }

unsigned long FLVWriter::send_audio_tag(std::string_view data, bool is_config) {
    std::string head(1, sound_flags());
    if (sound_format == FLVSoundFormat::AAC) head += is_config ? AAC_CONFIG : AAC_RAW;
    if (!is_config) data.remove_prefix(header_skip);
    const std::string tag = flv::create_tag(flv::FLVTagType::AUDIO, timestamp, head, data);
    timestamp += static_cast<std::uint32_t>(frame_ms);
    return send(tag);
}

// Format, rate, size, type: 4, 2, 1 and 1 bits.
char FLVWriter::sound_flags() const {
    return static_cast<char>(
        static_cast<int>(sound_format) << 4 | (static_cast<int>(sound_rate) & 3) << 2 |
        (static_cast<int>(sound_size) & 1) << 1 | (static_cast<int>(sound_type) & 1));
}

unsigned long FLVWriter::send_meta_tag() {
    const flv::ScriptMap facts = {
        {"createdby", CREATED_BY},
        {"audiocodecid", static_cast<double>(sound_format)},
        {"audiochannels", static_cast<double>(channels)},
        {"stereo", channels != 1},
        {"audiosamplerate", static_cast<double>(sample_rate)},
        {"title", metadata->title},
        {"url", metadata->url},
    };
    unsigned long sent = send_script("onMetaData", facts);
    sent += send_script("onCuePoint", as_script(metadata->extended));
    metadata = nullptr;
    return sent;
}

unsigned long FLVWriter::send_script(const std::string& name, const flv::ScriptMap& map) {
    return send(flv::create_tag(flv::FLVTagType::SCRIPT_DATA, timestamp,
                                flv::script_data_value(name), flv::script_data_value(map)));
}
