#pragma once

#include "core/TransferRate.h"
#include "core/shared_cell.h"
#include "core/spinlock.h"
#include "media/Metadata.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

class Socket;

// How the bytes of a stream arrive. A reader delivers audio only, keeps the metadata that it meets
// on the way, and counts what comes in. It may outlive its source: the next one of the same kind
// continues it with SetSocket.
// Owned by its Mount and its PacketBuffer. Mount thread: Read, Reset, SetSocket, Continue. Any
// thread: the rest.
class MediaReader {
public:
    // Seconds without a byte after which a read is given up.
    static constexpr int READ_TIMEOUT = 30;

    explicit MediaReader(std::shared_ptr<Socket> source = nullptr);
    virtual ~MediaReader() = default;
    MediaReader(const MediaReader&) = delete;
    MediaReader& operator=(const MediaReader&) = delete;

    // Writes up to `length` bytes at `buffer + offset` and returns how many; IO_END when the peer
    // closed, IO_AGAIN when nothing came for READ_TIMEOUT seconds, IO_FAILED. The socket readers
    // deliver all of `length`; after a result below 1 the bytes of that call are lost.
    virtual int Read(char* buffer, unsigned long long offset, unsigned long long length);
    // Forgets the position in the stream, before another source continues.
    virtual void Reset() {}

    // Continues with another socket; what the former one read stays counted.
    void SetSocket(std::shared_ptr<Socket> next) EXCLUDES(socket_lock);
    // Takes over the count and the metadata of a reader that this one replaces.
    void Continue(const MediaReader& former);

    std::shared_ptr<Socket> GetSocket() const EXCLUDES(socket_lock);
    // The peer's address; empty without a socket.
    std::string GetIP() const;
    // Null until the first metadata came.
    std::shared_ptr<METADATA> GetMetaData() const { return metadata.load(); }
    // Bytes of all sockets so far, everything included.
    std::uint64_t GetBytesRead() const EXCLUDES(socket_lock);
    // Bytes per second as TransferRate counts them.
    std::uint64_t GetBytesPerSecond(bool recent) const { return rate.GetBytesPerSecond(recent); }

protected:
    // One receive from the socket; the results of Socket::Recv. Everything comes in through here.
    virtual int receive(char* buffer, int length, int flags);
    void set_transfer_diff(unsigned int bytes) { rate.Add(bytes); }

    shared_cell<METADATA> metadata;

private:
    mutable spinlock socket_lock;
    std::shared_ptr<Socket> socket GUARDED_BY(socket_lock);
    std::uint64_t closed_socket_bytes GUARDED_BY(socket_lock) = 0; // of the sockets before
    TransferRate rate;
};
