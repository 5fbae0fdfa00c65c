#include "core/FileWriter.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int MOST_LINKS = 40; // as the kernel follows

// A descriptor that closes itself; errno stays.
class File {
public:
    explicit File(int opened) : descriptor(opened) {}
    ~File() { Close(); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    int Get() const { return descriptor; }
    bool IsOpen() const { return descriptor >= 0; }
    bool Close() {
        const int error = errno;
        const bool closed = descriptor < 0 || close(descriptor) == 0;
        descriptor = -1;
        if (closed) errno = error;
        return closed;
    }

private:
    int descriptor;
};

std::string folder_of(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == path.npos ? std::string("./") : path.substr(0, slash + 1);
}

// The path behind all symbolic links, also where it leads to nothing yet. Empty when they go in
// a circle.
std::string behind_links(std::string path) {
    std::string target(PATH_MAX, '\0');
    for (int followed = 0; followed < MOST_LINKS; ++followed) {
        const ssize_t length = readlink(path.c_str(), target.data(), target.size());
        if (length < 0) return path;
        const std::string link = target.substr(0, static_cast<std::size_t>(length));
        path = link.starts_with('/') ? link : folder_of(path).append(link);
    }
    errno = ELOOP;
    return {};
}

bool write_all(int file, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = write(file, text.data(), text.size());
        if (count > 0)
            text.remove_prefix(static_cast<std::size_t>(count));
        else if (count == 0 || errno != EINTR)
            return false;
    }
    return true;
}

bool write_in_place(const std::string& path, std::string_view text) {
    File file(open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
    return file.IsOpen() && write_all(file.Get(), text) && file.Close();
}

// Where the owner cannot be kept the group may still be; with neither the file is ours.
void keep_owner(int file, const struct stat& old) {
    if (fchown(file, old.st_uid, old.st_gid) == 0) return;
    if (fchown(file, static_cast<uid_t>(-1), old.st_gid) == 0) return;
}

bool fill(File& file, std::string_view text, mode_t mode, const struct stat* old) {
    if (old != nullptr) keep_owner(file.Get(), *old);
    return fchmod(file.Get(), mode) == 0 && write_all(file.Get(), text) && fsync(file.Get()) == 0 &&
           file.Close();
}

// Makes the rename itself last; what has been renamed is whole with or without.
void flush_folder(const std::string& folder) {
    const File file(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (file.IsOpen()) fsync(file.Get());
}

bool replace(const std::string& path, std::string_view text, mode_t mode, const struct stat* old) {
    std::string temporary = path + ".XXXXXX";
    File file(mkostemp(temporary.data(), O_CLOEXEC));
    if (!file.IsOpen()) return false;
    if (!fill(file, text, mode, old) || rename(temporary.c_str(), path.c_str()) != 0) {
        const int error = errno;
        unlink(temporary.c_str());
        errno = error;
        return false;
    }
    flush_folder(folder_of(path));
    return true;
}

// The folder takes no new file, or the file cannot be exchanged because it is a mount point, as
// settings handed into a container are.
bool is_refused_by_folder(int error) {
    return error == EACCES || error == EPERM || error == EROFS || error == EBUSY;
}

} // namespace

bool WriteFileWhole(const std::string& path, std::string_view text, mode_t mode_when_new) {
    const std::string target = behind_links(path);
    if (target.empty()) return false;
    struct stat old {};
    if (stat(target.c_str(), &old) != 0)
        return errno == ENOENT && replace(target, text, mode_when_new, nullptr);
    if (!S_ISREG(old.st_mode)) return write_in_place(target, text);
    // A rename would pass over the write protection of the file itself.
    if (faccessat(AT_FDCWD, target.c_str(), W_OK, AT_EACCESS) != 0) return false;
    return replace(target, text, old.st_mode & 07777, &old) ||
           (is_refused_by_folder(errno) && write_in_place(target, text));
}
