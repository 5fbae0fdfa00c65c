#include "media/MediaReader.h"

#include "net/Socket.h"

#include <utility>

MediaReader::MediaReader(std::shared_ptr<Socket> source) : socket(std::move(source)) {}

int MediaReader::Read(char*, unsigned long long, unsigned long long) { return IO_FAILED; }

void MediaReader::SetSocket(std::shared_ptr<Socket> next) {
    spin_guard guard(socket_lock);
    if (socket) closed_socket_bytes += socket->BytesRead();
    socket.swap(next);
}

void MediaReader::Continue(const MediaReader& former) {
    const std::uint64_t former_bytes = former.GetBytesRead();
    metadata.store(former.GetMetaData());
    spin_guard guard(socket_lock);
    closed_socket_bytes += former_bytes;
}

std::shared_ptr<Socket> MediaReader::GetSocket() const {
    spin_guard guard(socket_lock);
    return socket;
}

std::string MediaReader::GetIP() const {
    const std::shared_ptr<Socket> current = GetSocket();
    return current ? current->GetIP() : std::string();
}

std::uint64_t MediaReader::GetBytesRead() const {
    spin_guard guard(socket_lock);
    return closed_socket_bytes + (socket ? socket->BytesRead() : 0);
}

int MediaReader::receive(char* buffer, int length, int flags) {
    const std::shared_ptr<Socket> current = GetSocket();
    return current ? current->Recv(buffer, length, flags, READ_TIMEOUT) : IO_FAILED;
}
