#pragma once

#include "core/ThreadPoolWork.h"
#include "core/concurrent_queue.h"
#include "core/shared_cell.h"
#include "core/spinlock.h"
#include "media/BufferEntry.h"
#include "media/InputBuffer.h"
#include "media/ListenerList.h"
#include "media/Metadata.h"
#include "media/PacketBufferListener.h"

#include <atomic>
#include <cstdint>
#include <ctime>
#include <deque>
#include <memory>
#include <utility>
#include <vector>

class MediaReader;

// The newest packets of one stream, and their fan-out to its listeners. This class cuts fixed
// pieces, for streams that nobody can frame; a framer derives from it and overrides read_packet.
// Owned by its Mount; listeners share it and may outlive the Mount's interest.
// Mount thread: Start, FillBuffer, Resync, SetReader and all that is protected. One pool worker at
// a time: Poll, Process. Any thread: the rest. Held by shared_ptr before it is started.
class PacketBuffer : public ThreadPoolWork, public std::enable_shared_from_this<PacketBuffer> {
public:
    using EntryPointer = std::shared_ptr<BufferEntry>;
    using ListenerPointer = std::shared_ptr<PacketBufferListener>;

    // What FillBuffer did.
    enum FillResult : int {
        FILL_PACKET = 0, // one packet was cut
        FILL_END = 1,    // the source ended in good order
        FILL_FAILED = 2, // see SocketError
    };

    static constexpr std::size_t READ_BUFFER_LENGTH = 8192;
    // Bytes asked of the reader at once while a stream flows. A source's first read fills the
    // whole buffer, so that a stream begins with enough to play on; smaller ones after it keep a
    // packet from waiting for the packets behind it, half a second at 128 kbit/s.
    static constexpr std::size_t READ_STEP = 1000;
    static constexpr std::uint64_t GENERIC_SIZE_LIMIT = 0x100000;
    static constexpr std::size_t GENERIC_PACKET = 500;

    // `limit`: how many bytes of packets are retained; 0 for all of them.
    PacketBuffer(std::shared_ptr<MediaReader> source, std::uint64_t limit);

    // Packets go out on the pool from here on. Before that, and after SignalStop, they are
    // delivered by the thread that cuts them.
    void Start();
    void SignalStop() override;
    ThreadPool::Priority Poll(long long elapsed) override;
    void Process() override EXCLUDES(entries_lock, snapshot_lock, listeners_lock);

    // Waits for the source until one packet is cut.
    int FillBuffer();
    // Forgets what is not framed yet; packets and listeners stay. For when a source has left.
    void Resync();
    // Continues with a source that arrives in another way; its reader took over from the former
    // one with MediaReader::Continue.
    void SetReader(std::shared_ptr<MediaReader> next);

    // With `burst`, all that was retained at the last Process is handed to the listener at once.
    // No packet after the burst is left out; one may come twice.
    void AddListener(const ListenerPointer& listener, bool burst)
        EXCLUDES(snapshot_lock, listeners_lock);
    // While started, packets may still come until the next Process.
    void RemoveListener(const ListenerPointer& listener) EXCLUDES(listeners_lock);

    // The record that the next packet without one of its own begins.
    void SetMetaData(std::shared_ptr<METADATA> next) { pending_metadata.store(std::move(next)); }
    // The stream's own record that was attached last; null if there was none.
    std::shared_ptr<METADATA> GetMetaData() const { return last_metadata.load(); }

    void SetPacketBufferSize(unsigned int limit) EXCLUDES(entries_lock);
    std::uint64_t GetPacketBufferSize() const EXCLUDES(entries_lock);

    // All packets that are retained, oldest first.
    std::vector<EntryPointer> GetBufferSnapShot() const EXCLUDES(entries_lock);
    std::uint64_t GetBufferSize() const { return buffered_bytes; } // bytes
    std::uint64_t GetBufferCount() const { return buffered_count; }

    int GetAudioFrequency() const { return audio_frequency; } // samples per second
    std::uint16_t GetNumAudioChannels() const { return audio_channels; }
    double GetFrameTime() const { return frame_time; } // milliseconds, 0 until it is known
    // Why reading stopped, an errno value; 0 after Resync.
    int SocketError() const { return socket_error; }

protected:
    // Cuts one packet off read_buffer and adds it; false when that takes more bytes.
    virtual bool read_packet();
    // Retains a packet, which pushes the oldest ones out, and has it delivered.
    void add(const EntryPointer& entry) EXCLUDES(entries_lock, snapshot_lock, listeners_lock);
    // The oldest `count` bytes of read_buffer, which leave it; nothing, and no change, for 0 and
    // for more than there are. skip_buffer drops them.
    std::vector<char> advance_buffer(std::size_t count) { return read_buffer.Take(count); }
    void skip_buffer(std::size_t count) { read_buffer.Skip(count); }
    std::size_t read_fill() const { return read_buffer.Fill(); }
    // Told once, by the first frame. `milliseconds` is the time that a frame plays.
    void set_audio_format(int frequency, std::uint16_t channels, double milliseconds);

    InputBuffer read_buffer;
    std::shared_ptr<MediaReader> reader;

private:
    using ListenerType = ListenerList::Change;
    using ListenerChange = ListenerList::Changes::value_type;
    using Entries = std::deque<EntryPointer>;

    int read_more();
    int read_failed(int result);
    int give_up(FillResult why);

    // What is retained (PacketBufferEntries.cpp).
    void attach_metadata(BufferEntry& entry);
    std::uint64_t make_room(const EntryPointer& newest) REQUIRES(entries_lock);
    bool trim(std::uint64_t target, const EntryPointer& newest) REQUIRES(entries_lock);
    void retain(const EntryPointer& entry) REQUIRES(entries_lock);
    void remove_packet(std::size_t position, const EntryPointer& newest) REQUIRES(entries_lock);
    void remove_before(std::size_t position) REQUIRES(entries_lock);

    // Who gets it (PacketBufferFanout.cpp).
    void apply_listener_changes() EXCLUDES(listeners_lock);
    void take_listener_changes(ListenerList::Changes& changes) REQUIRES(listeners_lock);
    void take_new_packets() EXCLUDES(entries_lock, snapshot_lock, listeners_lock);
    void deliver_new_packets() EXCLUDES(listeners_lock);
    void end_delivery() EXCLUDES(listeners_lock);
    std::vector<ListenerPointer> show_to_joiners(const EntryPointer& newest) REQUIRES(entries_lock)
        EXCLUDES(snapshot_lock, listeners_lock);

    mutable spinlock entries_lock ACQUIRED_BEFORE(snapshot_lock); // then snapshot, then listeners
    spinlock snapshot_lock ACQUIRED_BEFORE(listeners_lock);
    spinlock listeners_lock;

    // The mount thread's own.
    time_t last_read_time;
    bool flowing = false; // the source's first read is done
    shared_cell<METADATA> last_metadata;
    shared_cell<METADATA> pending_metadata;
    std::atomic<int> socket_error{0};
    std::atomic<int> audio_frequency{0};
    std::atomic<std::uint16_t> audio_channels{0};
    std::atomic<double> frame_time{0.0};

    std::uint64_t size_limit GUARDED_BY(entries_lock);
    Entries entries GUARDED_BY(entries_lock); // oldest first
    std::atomic<std::uint64_t> buffered_bytes{0};
    std::atomic<std::uint64_t> buffered_count{0};

    std::atomic<bool> started{false};
    std::atomic<bool> processing{false}; // claimed by Poll, released by Process
    std::vector<EntryPointer> snapshot GUARDED_BY(snapshot_lock);
    // Changed in place, or replaced while a delivery goes on from it.
    std::shared_ptr<ListenerList> listeners GUARDED_BY(listeners_lock);
    concurrent_queue<ListenerChange> listener_queue;
    concurrent_queue<EntryPointer> packet_queue;

    // Of the worker in Process; the first is taken and given back under listeners_lock, the others
    // are kept for their memory.
    std::shared_ptr<const ListenerList> receiving;
    std::deque<EntryPointer> new_packets;
    std::vector<EntryPointer> old_snapshot;
};
