#pragma once

#include "directory/YellowPage.h"

#include <cstdint>
#include <map>
#include <string>

// The pairs of "key: value" lines, both sides trimmed. The last of a key counts.
std::map<std::string, std::string> parse_shoutcast_resp(const std::string& body);

// The SHOUTcast directory: told by the query of GET requests to three paths, it answers in lines of
// the body:
//   icy-response     ack or nak
//   icy-id           the listing's id, when it is added
//   icy-tchfrq       minutes between touches when it is added, seconds when it is touched
//   icy-error        a text for people, with a nak
//   icy-error-code   what goes with it
class ShoutcastYP final : public YellowPage {
public:
    // The directory of this build, a host that may have a port.
    static const char* const DIRECTORY;
    // Whether an address of whatever form means that directory.
    static bool IsMeantBy(const std::string& address);

    ShoutcastYP(std::shared_ptr<Mount> mount, const std::string& listing_at,
                const std::string& directory = DIRECTORY);

private:
    const Words& words() const override;
    std::string log_head() const override REQUIRES(lock);
    std::shared_ptr<Request> make_request(Exchange next) override REQUIRES(lock);
    bool answers_in_body() const override { return true; }
    Answer read_answer(const Request& reply) const override;
    std::string limit() const override REQUIRES(lock);
    void starts(Exchange next) override REQUIRES(lock);
    void added(const Answer& answer) override REQUIRES(lock);
    void touched(const Answer& answer) override REQUIRES(lock);
    void removed(const Answer& answer) override REQUIRES(lock);

    std::string target(Exchange next) REQUIRES(lock);
    std::string add_target() const REQUIRES(lock);
    std::string touch_target() REQUIRES(lock);

    const std::string directory;
    std::string port GUARDED_BY(lock); // that listeners are told; empty until the first exchange
    std::uint64_t last_tune_ins GUARDED_BY(lock) = 0; // as the last touch told
    std::uint64_t last_ex_tune_ins GUARDED_BY(lock) = 0;
};
