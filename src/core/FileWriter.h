#pragma once

#include <string>
#include <string_view>
#include <sys/types.h>

// Puts text in the place of a whole file: through a temporary file in the same folder, a flush to
// the disk and a rename, so that a crash at any instant leaves the old or the new file, complete.
// Symbolic links stay and their target is replaced. A file that exists keeps its mode, and its
// owner and group as far as the process may set them; a new one gets mode_when_new, whatever the
// umask. What is no regular file (a device, a pipe) is written in place, and so is a file that may
// be written in a folder that may not, or that is a mount point. False when the file may not be
// written or the disk is full; the old file is then as it was, but for one written in place, and
// errno tells why. Any thread; two writers of one path end with the text of one.
bool WriteFileWhole(const std::string& path, std::string_view text, mode_t mode_when_new);
