#pragma once

#include <cstddef>
#include <string>

// The files of src/web/assets, which the build turns into bytes of the program: the server needs no
// web root. Each has the name of its file, with "_" for "."; CMakeLists.txt of this folder says how
// to add one.
extern const unsigned char favicon_ico[];
extern const std::size_t favicon_ico_len;
extern const unsigned char live_js[];
extern const std::size_t live_js_len;
extern const unsigned char logo_png[];
extern const std::size_t logo_png_len;
extern const unsigned char main_css[];
extern const std::size_t main_css_len;
extern const unsigned char play_png[];
extern const std::size_t play_png_len;
extern const unsigned char player_js[];
extern const std::size_t player_js_len;
extern const unsigned char quillwave_png[];
extern const std::size_t quillwave_png_len;
extern const unsigned char quillwave_swf[];
extern const std::size_t quillwave_swf_len;
extern const unsigned char stop_png[];
extern const std::size_t stop_png_len;

// A script or a style sheet as text.
inline std::string asset_text(const unsigned char* bytes, std::size_t length) {
    return {bytes, bytes + length};
}
