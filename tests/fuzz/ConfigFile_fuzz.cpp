#include "config/ConfigLoad.h"
#include "config/ConfigSave.h"
#include "support/MemoryFiles.h"
#include "support/SettingsTree.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

// The input is a settings file that may include "other", whose text follows the first NUL; nothing
// on the disk is touched. It is loaded, saved, and loaded again as a reload.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(data, data + size);
    const auto cut = std::min(text.find('\0'), text.size());
    MemoryFiles files{{{"main", text.substr(0, cut)}, {"other", text.substr(cut)}}};
    const auto root = EmptySettings();
    LoadConfig("main", files.Reader(), root);
    for (const ConfigOutput& output : MergeConfig("main", files.Reader(), root).outputs)
        files.texts[output.path] = output.text;
    LoadConfig("main", files.Reader(), root);
    return 0;
}
