#include "media/Metadata.h"

bool same_metadata(const METADATA& a, const METADATA& b) {
    if (&a == &b) return true;
    return a.title == b.title && a.song == b.song && a.artist == b.artist && a.url == b.url &&
           a.extra_text == b.extra_text && a.codec == b.codec &&
           a.extended.size() == b.extended.size() && a.raw.size() == b.raw.size();
}
