#pragma once

#include "core/Log.h"
#include "core/ThreadPoolWork.h"
#include "core/spinlock.h"
#include "media/PacketBufferListener.h"
#include "net/ArrivalWatch.h"
#include "streaming/PacketQueue.h"

#include <atomic>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>

class MediaWriter;
class Mount;
class PacketBuffer;
class Request;
class Response;
class Socket;
class User;
class WebPanel;
struct METADATA;

// One accepted connection, from its first byte to its end: it reads the request, tells from it what
// the connection is (a source, a page, a listener), and serves it. A source is handed to its Mount;
// a listener about whom another server is asked takes its place when the answer is in.
// Held by ReceiverList and the pool, and by the Mount that it listens to.
//
// One worker at a time runs Process, with process_lock held, and never waits in it: what cannot go
// on returns and is called again. The pointers and texts below change on that worker only, and
// under name_lock; so the worker reads them as they are, and any other thread under name_lock.
// Any thread: Kick, OnNewPacket and the public accessors. SetMount and Detached: any thread that
// does not hold a process_lock of a listener.
class Receiver : public PacketBufferListener,
                 public ThreadPoolWork,
                 public ArrivalListener,
                 public std::enable_shared_from_this<Receiver> {
public:
    explicit Receiver(std::shared_ptr<Socket> client);
    ~Receiver() override;

    void OnNewPacket(const std::shared_ptr<BufferEntry>& packet) override;

    void OnArrival() override;

    void SignalStop() override { Kick(); }
    ThreadPool::Priority Poll(long long elapsed) override;
    void Process() override;

    // Ends the connection with its next slice, which comes without further waiting.
    void Kick();
    // Moves a listener to another connected mount of the same content type; anything else is
    // ignored. Waits while a slice of the listener runs.
    void SetMount(const std::shared_ptr<Mount>& new_mount) EXCLUDES(process_lock);
    // Finished, with no slice running.
    bool Detached() EXCLUDES(process_lock);

    std::shared_ptr<Receiver> getptr() { return shared_from_this(); }
    // 0 reading a request, 1 a long-running answer, 2 to be torn down, 3 finished or handed over.
    int Status() const { return status.load(std::memory_order_acquire); }
    std::string GetUUID() const { return uuid; }
    std::string GetIP() const { return ip; }
    std::string GetInterfaceIP() const { return interface_ip; }
    // The name behind the address once that is known, until then the address.
    std::string GetHostname() const EXCLUDES(name_lock);
    // Finds out the name, unless it is known; waits for as long as the resolver takes.
    void ResolveHostname() EXCLUDES(name_lock);
    std::shared_ptr<Request> GetRequest() const EXCLUDES(name_lock);
    // The mount asked for, also while its fallback is played; empty for other connections.
    std::shared_ptr<Mount> GetMount() const EXCLUDES(name_lock);
    // The address of the fallback that is being played, empty otherwise.
    std::string ActiveMount() const EXCLUDES(name_lock);
    std::shared_ptr<User> GetUserAccount() const EXCLUDES(name_lock);

    // Why the connection ends: an errno value, 105 for too much queued, 110 for a send that took
    // too long; 0 for none.
    int LastError() const EXCLUDES(name_lock);
    std::uint64_t BytesSent() const EXCLUDES(name_lock);
    time_t ConnectTime() const { return connect_time; }
    double GetConnectTime() const; // seconds since then
    time_t GetLastServiceTime() const { return last_service.load(std::memory_order_relaxed); }
    bool Vip() const { return vip.load(std::memory_order_relaxed); }
    // Bytes per second, over the last ten seconds or all that is remembered.
    std::uint64_t GetBitrate(bool recent) const EXCLUDES(name_lock);
    // The record of this connection for the listener log, as of now.
    Log::ReceiverStats GetLogStats() const EXCLUDES(name_lock);

private:
    friend struct ReceiverProbe; // of the tests, for states that no peer can bring about
    // A slice is queued or runs, or none is. What arrives meanwhile has it followed by another.
    enum class Turn : std::uint8_t { NONE, TAKEN, WANTED_AGAIN };
    enum State : int { READING = 0, RUNNING = 1, ENDING = 2, FINISHED = 3 };
    // What follows once the answer that is on its way has left.
    enum class Then : std::uint8_t { NOTHING, NEXT_REQUEST, HAND_OVER };

    // Receiver.cpp: the slice.
    bool take_turn();
    void end_turn();
    bool slice_is_due(long long elapsed) EXCLUDES(process_lock);
    bool page_sleeps(long long elapsed);
    bool page_has_news() REQUIRES(process_lock);
    ThreadPool::Priority priority() const EXCLUDES(name_lock);
    void serve() REQUIRES(process_lock);
    void slice() REQUIRES(process_lock);
    bool peer_is_gone() REQUIRES(process_lock);
    void watch_socket() REQUIRES(process_lock);
    void stop_watching() REQUIRES(process_lock);
    void run_long_answer() REQUIRES(process_lock);
    void become(State next) { status.store(next, std::memory_order_release); }
    bool is_listener() const REQUIRES(process_lock);
    double seconds_since(time_t moment) const REQUIRES(process_lock);
    std::string peer() const { return "<" + ip + "> "; }

    // ReceiverRequest.cpp: reading a request, and telling what it asks for.
    void read_request() REQUIRES(process_lock);
    void answer_read_failure() REQUIRES(process_lock);
    void check_reading_limits(int read_result) REQUIRES(process_lock);
    void answer_request() REQUIRES(process_lock);
    bool refused_as_invalid() REQUIRES(process_lock);
    bool refused_as_banned() REQUIRES(process_lock);
    bool refused_by_method() REQUIRES(process_lock);
    void identify_account() REQUIRES(process_lock);
    bool answered_by_panel() REQUIRES(process_lock);
    bool refused_as_unknown_mount() REQUIRES(process_lock);
    bool taken_as_source() REQUIRES(process_lock);
    bool refused_without_source() REQUIRES(process_lock);
    bool refused_by_admission() REQUIRES(process_lock);
    void continue_admission() REQUIRES(process_lock);
    void choose_played_mount() REQUIRES(process_lock);
    void start_listening() REQUIRES(process_lock);
    bool is_reserved() const REQUIRES(process_lock);
    void continue_page() REQUIRES(process_lock);
    void finish_page() REQUIRES(process_lock);
    void drop_page() REQUIRES(process_lock);
    std::string asked_for() const REQUIRES(process_lock);

    // ReceiverSource.cpp: the two ways in which a source introduces itself.
    void greet_icy_source(int read_result) REQUIRES(process_lock);
    void log_in_icy_source() REQUIRES(process_lock);
    void answer_http_source() REQUIRES(process_lock);
    unsigned short source_status() const REQUIRES(process_lock);
    void hand_over() REQUIRES(process_lock);

    // ReceiverAnswer.cpp: answers on their way to the peer.
    Response& start_answer(unsigned short code, const std::string& reason = {})
        REQUIRES(process_lock);
    void conclude() REQUIRES(process_lock);
    void answer_then(Then next) REQUIRES(process_lock);
    void finish_answer() REQUIRES(process_lock);
    void end_answer() REQUIRES(process_lock);
    void next_request() REQUIRES(process_lock);
    void forget_mount() REQUIRES(process_lock);

    // ReceiverStreaming.cpp: a listener's slice.
    void stream() REQUIRES(process_lock);
    void note_extended() REQUIRES(process_lock);
    void follow_sources() REQUIRES(process_lock);
    void move_to(std::shared_ptr<Mount> next, std::shared_ptr<Mount> origin) REQUIRES(process_lock);
    void wait_for_source() REQUIRES(process_lock);
    bool join_buffer() REQUIRES(process_lock);
    bool send_what_waits() REQUIRES(process_lock);
    bool write_packets() REQUIRES(process_lock);
    bool write_packet(const std::shared_ptr<BufferEntry>& packet, std::uint64_t& written)
        REQUIRES(process_lock);
    void note_metadata(std::shared_ptr<METADATA> next) REQUIRES(process_lock);
    void take_next_buffer() REQUIRES(process_lock);
    void check_streaming_limits() REQUIRES(process_lock);
    void end_stream(const std::string& why) REQUIRES(process_lock);
    void leave_buffer() REQUIRES(process_lock);
    void finish_move() REQUIRES(process_lock);

    // ReceiverTeardown.cpp: the end.
    void tear_down() REQUIRES(process_lock);
    void leave_mount() REQUIRES(process_lock);
    bool farewell_is_sent() REQUIRES(process_lock);
    void leave_list() REQUIRES(process_lock);

    std::shared_ptr<Response> get_response() const EXCLUDES(name_lock);
    // Receiver.cpp: assignments under name_lock, of what other threads read.
    template <typename T>
    void assign(std::shared_ptr<T>& field, std::shared_ptr<T> next) EXCLUDES(name_lock);
    void set_mounts(std::shared_ptr<Mount> next, std::shared_ptr<Mount> origin) EXCLUDES(name_lock);

    // What Poll looks at stands together.
    std::atomic<Turn> turn{Turn::TAKEN}; // for the first slice is queued with the registration
    std::atomic<bool> kicked{false};
    std::atomic<bool> vip{false};        // a reserved listener
    std::atomic<bool> is_watched{false}; // the socket, on which nothing has arrived since
    bool extended = false;               // counted as one who stayed long
    bool left_list = false;
    bool body_ended = false; // by a teardown, which may take several slices
    bool is_moving = false;  // a listener, to the mount that has been set
    bool page_waits = false; // for news: an answer of the panel's that is in progress
    Then after_answer = Then::NOTHING;
    std::atomic<int> status{READING};
    mutable spinlock name_lock;
    mutable spinlock process_lock ACQUIRED_BEFORE(name_lock); // held for the length of a slice
    std::atomic<long long> wait_ms{0};                        // until the next slice is due
    // Of a page without news: what changes when it may have some, and how that stood. Or null.
    std::atomic<std::uint64_t (*)()> news_number{nullptr};
    std::atomic<std::uint64_t> news_seen{0};

    PacketQueue packets;

    const time_t connect_time;
    std::atomic<time_t> last_service; // the latest slice
    std::atomic<time_t> last_log;     // the latest record in the listener log
    time_t last_send;                 // the latest packet written
    std::uint64_t time_limit = 0;     // seconds allowed on the mount, 0 for no limit
    const int client_timeout;         // seconds without a source, 0 for no limit
    int buffer_index = -1;            // place in the mount's chain of buffers
    int admission_status = 0;         // as of Admission

    const std::string ip;
    const std::string interface_ip;
    const std::string server_hostname;
    const std::string uuid;

    std::string hostname GUARDED_BY(name_lock); // the thread of the name lookups changes it

    // Changed by the worker only and under name_lock, so that the worker reads them as they are.
    std::shared_ptr<Request> request;
    std::shared_ptr<Response> response;
    std::shared_ptr<METADATA> metadata; // the last one seen
    std::shared_ptr<Mount> mount;
    std::shared_ptr<Mount> origin_mount; // the mount asked for, while its fallback is played
    std::shared_ptr<User> account;

    // The worker's own.
    std::shared_ptr<Socket> socket;
    std::shared_ptr<MediaWriter> writer;
    std::shared_ptr<METADATA> next_metadata; // of the packet last written
    std::shared_ptr<PacketBuffer> packet_buffer;
    std::shared_ptr<WebPanel> web_panel;
    std::shared_ptr<Request> inquiry; // whether the listener may join, while another server thinks
};
