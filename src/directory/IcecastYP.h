#pragma once

#include "directory/YellowPage.h"

// A directory that is told by POST requests with a form and answers in header fields:
//   YPResponse   1 for yes, 0 for no
//   YPMessage    a text for people
//   SID          the listing's id, when it is added
//   TouchFreq    seconds between touches, when it is added, and whenever it changes
class IcecastYP final : public YellowPage {
public:
    using YellowPage::YellowPage;

private:
    const Words& words() const override;
    std::string log_head() const override REQUIRES(lock);
    std::shared_ptr<Request> make_request(Exchange next) override REQUIRES(lock);
    bool answers_in_body() const override { return false; }
    Answer read_answer(const Request& reply) const override;
    void added(const Answer& answer) override REQUIRES(lock);
    void touched(const Answer& answer) override REQUIRES(lock);
    void removed(const Answer& answer) override REQUIRES(lock);

    std::string body(Exchange next) const REQUIRES(lock);
    std::string add_body() const REQUIRES(lock);
    std::string touch_body() const REQUIRES(lock);
};
