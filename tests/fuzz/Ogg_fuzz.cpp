#include "core/Log.h"
#include "fuzz/FramingFuzz.h"
#include "media/OggBuffer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Log lines would only pile up, as nobody writes them here.
    Log::SetLevel(static_cast<Log::Level>(Log::NORMAL + 1));
    fuzz_framing<OggBuffer>(data, size);
    return 0;
}
