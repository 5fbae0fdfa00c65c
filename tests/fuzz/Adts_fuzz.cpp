#include "fuzz/FramingFuzz.h"
#include "media/AacBuffer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz_framing<AacBuffer>(data, size);
    return 0;
}
