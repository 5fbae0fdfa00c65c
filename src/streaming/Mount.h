#pragma once

#include "config/ConfigNodeListener.h"
#include "core/shared_cell.h"
#include "core/spinlock.h"
#include "streaming/MountDescription.h"
#include "streaming/MountNotifications.h"
#include "streaming/MountStatistics.h"
#include "streaming/RelayList.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class MediaReader;
class PacketBuffer;
class Publication;
class Receiver;
class Request;
class Socket;
class User;
struct Framer;

// The answer to a listener who wants to join.
struct Admission {
    enum Status : int {
        PENDING = -1, // another server is being asked
        ADMITTED = 0,
        FULL = 1,
        ABOVE_BITRATE = 2,
        BANNED = 3,
        ADMITTED_AS_FLV = 5,
        NOT_AUTHORIZED = 6,
    };
    int status = ADMITTED;
    std::uint64_t time_limit = 0; // seconds, 0 for none
};

// One published stream: its settings, the source that feeds it, and the listeners that hear it.
// MountList and, while it runs, the mount's own thread keep it; listeners share it.
// Mount thread: everything under "source session", do_stats_snap. Any thread: all public
// operations but Process. Lock order: receivers, settings, buffers. Listeners, sockets, the user
// list and the mount list are called with no lock held, unless a line below says so.
class Mount final : public ConfigNodeListener, public std::enable_shared_from_this<Mount> {
public:
    using MountDescription = ::MountDescription;
    using MountStatistics = ::MountStatistics;

    // Who decides whether the stream stands in directories. The keywords of the setting `Public`
    // are "Source", "always" and "never".
    enum class PublicState { SOURCE = 0, ALWAYS = 1, NEVER = 2 };

    // Reads the settings from `node`, the mount's section, and from "Default", and listens on both.
    // An id of -1 takes the next free one; without a node the mount gets an empty section, which
    // MountList::Add puts into the tree. Nothing runs before Start.
    Mount(std::string address, int id, const std::shared_ptr<ConfigNode>& node);
    ~Mount();
    Mount(const Mount&) = delete;
    Mount& operator=(const Mount&) = delete;

    // ---- Identity, settings and what the source said (Mount.cpp, MountSettings.cpp) ----
    int GetID() const { return id; }
    std::string Address() const { return address; }
    std::string Name() const EXCLUDES(settings_lock); // with NameFormat applied
    std::string Description() const EXCLUDES(settings_lock);
    std::string Genre() const EXCLUDES(settings_lock);
    std::string Bitrate() const EXCLUDES(settings_lock);
    std::string Website() const EXCLUDES(settings_lock);
    std::string ContentType() const EXCLUDES(settings_lock);
    std::string AudioInfo() const EXCLUDES(settings_lock);
    std::string LastIP() const EXCLUDES(settings_lock);
    std::string GetAssignedIP() const EXCLUDES(settings_lock);
    std::string GetAssignedPort() const EXCLUDES(settings_lock);
    PublicState GetPublicState() const { return public_state; }
    std::int64_t MaxReceivers() const { return max_receivers; }
    std::int64_t IPMaxReceivers() const { return ip_max_receivers; }
    std::uint32_t MetaInterval() const { return meta_interval; }         // bytes
    std::uint64_t ListenerTimer() const { return listener_timer; }       // minutes, 0 for no limit
    std::uint64_t GetBitrateLimit() const { return bitrate_limit; }      // bits per second, 0: none
    std::uint32_t RelayDisconnectWaitTime() const { return relay_wait; } // seconds
    std::uint16_t SongHistoryLength() const { return history_length; }
    bool AuthRequired() const { return auth_required; }
    bool IsDisabled() const { return disabled; }
    bool Public() const EXCLUDES(settings_lock);
    bool PublicRelays() const EXCLUDES(settings_lock);
    std::string Realm() const EXCLUDES(settings_lock);
    MountNotifications GetNotifications() const EXCLUDES(settings_lock);
    MountDescription GetMountDescription() const EXCLUDES(settings_lock);
    // The mount's public state as one text; whoever finds it changed shows the mount anew.
    std::string ToString() const EXCLUDES(settings_lock);
    // Always false.
    bool IsAuthenticated(const std::string& user, const std::string& pass) const;

    void SetName(const std::string& text) EXCLUDES(settings_lock);
    void SetNameFormat(const std::string& format) EXCLUDES(settings_lock); // lists anew
    void SetPublicState(PublicState state);                                // lists, or ends that
    void SetMetaInterval(int bytes);                                       // at least 1024
    void SetMaxReceivers(int most);                                        // lists anew
    void SetIPMaxReceivers(int most) { ip_max_receivers = most; }
    void SetRelayDisconnectWaitTime(unsigned int seconds); // 0 is ignored
    void SetSongHistoryLength(unsigned short songs);       // at most 50
    void SetBitrateLimit(std::uint64_t kilobits);          // kept in bits per second

    std::shared_ptr<Publication> GetPublication() const { return publication; }

    void AddRelayAddress(const std::string& url) EXCLUDES(settings_lock);
    void SetRelayAddress(const std::string& old_url, const std::string& new_url)
        EXCLUDES(settings_lock);
    void RemoveRelayAddress(const std::string& url) EXCLUDES(settings_lock);
    std::string RelayAddress() const EXCLUDES(settings_lock); // the one in turn, or empty

    // The keys that configuration pages offer, in their order.
    static std::vector<std::string> GetKnownConfigKeys();
    std::shared_ptr<ConfigNode> GetConfigNode() const { return config_node.load(); }
    // Takes another section, listens on it and reads it.
    void SetConfigNode(const std::shared_ptr<ConfigNode>& node);
    // Stops listening and empties the section, so that the next save leaves the mount out.
    void DeleteConfigNode();
    bool OnConfigNodeChanged(std::shared_ptr<ConfigNode> node, std::string old_value) override;

    // Whether an address other than its own leads here; "/stream/N" does for the id N.
    bool IsSymLink(const std::string& other_address) const EXCLUDES(symlinks_lock);
    // False when some mount answers to the address already.
    bool SetSymLink(const std::string& other_address) EXCLUDES(symlinks_lock);

    // ---- The thread and its source (MountThread.cpp, MountSource.cpp, MountRelay.cpp) ----
    // Starts the mount's thread, unless the mount is disabled.
    void Start();
    // Asks the thread to end: it leaves its source at once, and its listeners.
    void SignalStop();
    // The same, and returns when the thread has ended. Not from the mount's own thread.
    void WaitForStop();
    // The mount will not come back: it is not started again, and whoever is let in from here on is
    // sent away at once, as those are who are there when its thread ends. False for who is not the
    // first to say so.
    bool Dismiss() { return !dismissed.exchange(true); }
    // Drops the source; the mount goes on waiting for another.
    void Kick();
    bool IsRunning() const { return running; }
    bool IsConnected() const { return connected; }
    time_t GetConnectTime() const { return connect_time; }
    // Hands over a source's request with its socket, which are the mount's from then on.
    void SetRequest(const std::shared_ptr<Request>& source_request) EXCLUDES(settings_lock);
    std::shared_ptr<Request> GetRequest() const EXCLUDES(settings_lock);
    std::shared_ptr<User> GetSourceAccount() const EXCLUDES(settings_lock);
    std::uint64_t BytesReceived() const;
    std::uint64_t GetBitrate(bool recent) const; // bits per second
    // The mount that stands in while this one has no source, or null.
    std::shared_ptr<Mount> GetFallbackMount() const EXCLUDES(settings_lock);

    // ---- Packet buffers (MountBuffers.cpp, MountIntro.cpp) ----
    // The live one, or null.
    std::shared_ptr<PacketBuffer> GetPacketBuffer() const { return live_buffer.load(); }
    // A listener walks the buffers, intro first, by an index of its own that starts at 0; -1 means
    // that there is nothing further.
    bool HasNextPacketBuffer(int& index) const; // takes no lock
    std::shared_ptr<PacketBuffer> GetNextPacketBuffer(int& index) const EXCLUDES(buffers_lock);
    // Reads a whole file as the intro of every listener. False when nothing could be read.
    bool SetIntroFile(const std::string& path) EXCLUDES(buffers_lock);

    // ---- Listeners (MountListeners.cpp) ----
    // One step that does not wait. While the answer is PENDING, `inquiry`, empty at first, holds
    // the call to another server: come again with it.
    Admission RegisterReceiver(const std::shared_ptr<Receiver>& receiver,
                               std::shared_ptr<Request>& inquiry)
        EXCLUDES(receivers_lock, settings_lock);
    void UnregisterReceiver(const std::shared_ptr<Receiver>& receiver) EXCLUDES(receivers_lock);
    std::vector<std::shared_ptr<Receiver>> GetReceiverList() const EXCLUDES(receivers_lock);
    // Sends all of them away, also those who hear the fallback.
    void KickReceivers() EXCLUDES(receivers_lock);

    // ---- Figures and songs (MountStatistics.cpp) ----
    MountStatistics GetMountStatistics() const EXCLUDES(settings_lock);
    std::uint64_t ReceiverSize() const { return receiver_count; }
    std::uint64_t UniqueReceivers() const { return unique_receivers; }
    std::uint64_t PeakReceivers() const { return peak_receivers; }
    std::uint64_t TuneIns() const { return tune_ins; }
    std::uint64_t ExTuneIns() const { return ex_tune_ins; }
    std::uint64_t AvgConnectTime() const { return avg_connect; } // seconds
    std::uint64_t AvgQuarterHour() const;                        // listeners, rounded up
    std::uint64_t BytesSent() const { return bytes_sent; }
    void IncBytesSent(std::uint64_t bytes) { bytes_sent += bytes; }
    // A listener has stayed long enough to count as extended.
    void ExtendedReceiver();
    void ResetStats();
    // Takes the quarter-hour snapshot when one is due.
    void do_stats_snap() EXCLUDES(receivers_lock);

    // The current record; a new empty one when there is none.
    std::shared_ptr<METADATA> GetMetaData() const EXCLUDES(settings_lock);
    // A new title from outside the stream: listeners get it with the next packet.
    void SetMetaData(const std::shared_ptr<METADATA>& next) EXCLUDES(settings_lock);
    SongHistory GetSongHistory() const EXCLUDES(settings_lock);

private:
    class SettingValue;
    struct SettingKey;
    // Why a listener may not join, in the words of the log, with ADMITTED when nothing is against
    // it.
    struct Refusal {
        int status = Admission::ADMITTED;
        std::string words = {};
        std::uint64_t time_limit = 0; // of one who may
    };
    // One source session: what the mount's thread holds while it lasts.
    struct Session {
        std::shared_ptr<Request> request = {};
        std::shared_ptr<Socket> socket = {};
        std::string peer = {};   // how its log lines begin
        std::string stream = {}; // the address at which the source sends
        std::string type = {};   // what it sends, in the words of the log
        bool is_relay = false;   // the source is another server, which was called
    };

    // Mount.cpp
    std::string get_name() const REQUIRES(settings_lock);
    bool wants_publication() const REQUIRES(settings_lock);

    // MountPublication.cpp
    void start_publication() EXCLUDES(settings_lock);
    void stop_publication();
    void settle_publication();
    void add_directories(const ConfigNode& section);
    void follow_directory(const std::string& old_url, const std::string& new_url);

    // MountSettings.cpp
    static const SettingKey SETTING_KEYS[];
    void read_settings();
    bool changes(const SettingKey& row, ConfigNode& node, const std::string& old_value) const;
    bool has_own(const std::string& key) const;
    void follow_relay(bool in_default, const std::string& old_url, const std::string& new_url);
    void settle_default_relays();
    void make_source_account();
    void set_default(bool is_default);
    void take_text(std::string Mount::*field, const std::string& text) EXCLUDES(settings_lock);
    void take_text(std::string MountNotifications::*field, const std::string& text)
        EXCLUDES(settings_lock);

    // MountThread.cpp
    void Process();
    void attempt(void (Mount::*step)());
    bool goes_on();
    std::thread start_thread();
    void apply_disabled(bool now_disabled);
    void leave_source();
    void wake();

    // Source session (MountSource.cpp): the mount's thread only.
    void RetrieveStream();
    bool wait_for_source();
    bool source_waits() const EXCLUDES(settings_lock);
    bool take_source();
    bool open_stream();
    void take_properties(const Request& source) EXCLUDES(settings_lock);
    void announce_source();
    void pump();
    void follow_metadata(const PacketBuffer& buffer);
    void log_end(int result, int error);
    void end_session();
    bool next_source_waits() const EXCLUDES(settings_lock);
    void drop_request(const std::shared_ptr<Request>& only) EXCLUDES(settings_lock);
    void close_down();
    void rest();

    // MountRelay.cpp: the mount's thread only.
    bool is_relay() const EXCLUDES(settings_lock);
    bool connect_relay();
    void call_master(Request& master);
    void log_relay_failure(const Request& master) const;
    void rest_from_relay();

    // MountNotify.cpp
    void tell_source_came() const;
    void tell_source_left() const;
    Refusal ask(const Receiver& receiver, std::shared_ptr<Request>& inquiry) const;
    Refusal refuse_as_told(const Request& answer) const;
    void tell_listener_left(const Receiver& receiver, double seconds) const;

    // MountBuffers.cpp: the mount's thread only.
    std::shared_ptr<MediaReader> get_media_reader(const std::shared_ptr<Request>& source) const;
    void open_reader(const std::shared_ptr<Request>& source);
    void open_buffer(const Framer& framer);
    void cleanup_buffer() EXCLUDES(buffers_lock);
    void reset();

    // MountListeners.cpp
    Refusal bar(const Receiver& receiver) const;
    bool exceeds_bitrate_limit() const;
    Refusal refuse_stranger(const Receiver& receiver) const;
    Refusal take_in(const std::shared_ptr<Receiver>& receiver) EXCLUDES(receivers_lock);
    bool is_ip_full(const std::string& ip) const REQUIRES(receivers_lock);
    bool is_full() const REQUIRES(receivers_lock);
    std::shared_ptr<Receiver> longest_listener() const REQUIRES(receivers_lock);
    void count_in(const std::shared_ptr<Receiver>& receiver) REQUIRES(receivers_lock);
    bool count_out(const Receiver& receiver, std::uint64_t seconds) EXCLUDES(receivers_lock);
    void count_out_ip(const std::string& ip) REQUIRES(receivers_lock);

    // MountStatistics.cpp
    void add_session(std::uint64_t seconds) REQUIRES(receivers_lock);
    std::shared_ptr<METADATA> current_record() const EXCLUDES(settings_lock); // may be null
    void change_meta_data(const std::shared_ptr<METADATA>& next) EXCLUDES(settings_lock);

    const int id;
    const std::string address;
    const std::shared_ptr<Publication> publication; // is called with no lock held

    // Settings, and what the source said of its stream.
    mutable spinlock settings_lock;
    std::string name GUARDED_BY(settings_lock) = "Unnamed Stream";
    std::string name_format GUARDED_BY(settings_lock);
    std::string description GUARDED_BY(settings_lock);
    std::string genre GUARDED_BY(settings_lock);
    std::string bitrate GUARDED_BY(settings_lock);
    std::string website GUARDED_BY(settings_lock);
    std::string content_type GUARDED_BY(settings_lock) = "application/octet-stream";
    std::string audio_info GUARDED_BY(settings_lock);
    std::string last_ip GUARDED_BY(settings_lock);
    std::string fallback GUARDED_BY(settings_lock);
    std::string assigned_ip GUARDED_BY(settings_lock);
    std::string assigned_port GUARDED_BY(settings_lock);
    MountNotifications notifications GUARDED_BY(settings_lock);
    RelayList relays GUARDED_BY(settings_lock);
    bool source_public GUARDED_BY(settings_lock) = false;
    std::shared_ptr<Request> request GUARDED_BY(settings_lock);
    std::shared_ptr<User> source_account GUARDED_BY(settings_lock);
    std::shared_ptr<METADATA> metadata GUARDED_BY(settings_lock);
    SongHistory song_history GUARDED_BY(settings_lock);
    std::atomic<PublicState> public_state{PublicState::SOURCE};
    std::atomic<std::int64_t> max_receivers{-1};
    std::atomic<std::int64_t> ip_max_receivers{-1};
    std::atomic<std::uint32_t> meta_interval{8192};
    std::atomic<std::uint32_t> relay_wait{30};
    std::atomic<std::uint64_t> listener_timer{0};
    std::atomic<std::uint64_t> bitrate_limit{0};
    std::atomic<std::uint16_t> history_length{20};
    std::atomic<bool> auth_required{false};
    std::atomic<bool> public_relays{true};
    shared_cell<ConfigNode> config_node;
    const std::shared_ptr<ConfigNode> default_node;

    mutable spinlock symlinks_lock;
    std::list<std::string> symlinks GUARDED_BY(symlinks_lock);

    // The thread. Flags change under thread_mutex and are read without it.
    std::mutex thread_mutex;
    std::thread thread;
    bool wanted = false; // asked to run, and not to end
    std::atomic<bool> disabled{false};
    std::atomic<bool> running{false};
    std::atomic<bool> stop{false};
    std::atomic<bool> kick{false};
    std::atomic<bool> connected{false};
    std::atomic<bool> dismissed{false};
    std::atomic<time_t> connect_time{0};
    std::mutex wake_mutex; // nothing but the wait; taken before settings_lock
    std::condition_variable wake_up;
    Session session;                   // the mount thread's own, no lock
    shared_cell<Socket> source_socket; // so that others can end a blocked read

    mutable spinlock buffers_lock;
    std::vector<std::shared_ptr<PacketBuffer>> buffers GUARDED_BY(buffers_lock); // in play order
    bool has_intro GUARDED_BY(buffers_lock) = false;
    std::atomic<std::size_t> buffer_count{0}; // changes under the lock
    shared_cell<PacketBuffer> live_buffer;
    shared_cell<MediaReader> reader;

    // Listeners. The counters change under receivers_lock and are read without it.
    mutable spinlock receivers_lock ACQUIRED_BEFORE(settings_lock);
    std::map<std::string, std::shared_ptr<Receiver>>
        receivers GUARDED_BY(receivers_lock); // by UUID
    std::map<std::string, unsigned int> ip_counts GUARDED_BY(receivers_lock);
    std::atomic<std::uint64_t> receiver_count{0};
    std::atomic<std::uint64_t> unique_receivers{0};
    std::atomic<std::uint64_t> peak_receivers{0};
    std::atomic<std::uint64_t> tune_ins{0};
    std::atomic<std::uint64_t> ex_tune_ins{0};
    std::atomic<std::uint64_t> avg_connect{0};
    std::atomic<std::uint64_t> avg_connect_samples{0};
    std::atomic<std::uint64_t> bytes_sent{0};
    std::atomic<std::uint64_t> quarter_hour_count{0};
    std::atomic<std::uint64_t> quarter_hour_samples{0};
    std::atomic<double> avg_quarter_hour{0};
    time_t last_snap; // the mount thread's own once it runs
};
