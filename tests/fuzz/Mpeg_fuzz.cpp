#include "fuzz/FramingFuzz.h"
#include "media/MpegBuffer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz_framing<MpegBuffer>(data, size);
    return 0;
}
