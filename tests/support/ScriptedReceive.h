#pragma once

#include "net/Socket.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <deque>
#include <functional>
#include <string>
#include <utility>

// A socket reader whose bytes come from a script instead of a socket. Each step is one result of a
// receive: a segment, or a failure. Peeks look at the segment in front. After the script the peer
// has closed.
template <typename Reader> class ScriptedReceive : public Reader {
public:
    using Reader::Reader;

    ScriptedReceive& Segment(std::string bytes) { return add({std::move(bytes), 0, {}}); }
    ScriptedReceive& Bytes(const std::string& bytes) {
        for (const char byte : bytes)
            Segment(std::string(1, byte));
        return *this;
    }
    ScriptedReceive& Result(int result) { return add({{}, result, {}}); }
    // Done when the next step is reached, before anything of that is received.
    ScriptedReceive& First(std::function<void()> what) { return add({{}, 0, std::move(what)}); }

    // What was not received.
    std::string Rest() const {
        std::string rest;
        for (const Step& step : steps)
            rest += step.bytes;
        return rest.substr(received);
    }

    // Everything that a Read delivers, with its result.
    std::pair<int, std::string> ReadOnce(std::size_t length) {
        std::string bytes(length, '\0');
        const int result = this->Read(bytes.data(), 0, length);
        bytes.resize(static_cast<std::size_t>(std::max(result, 0)));
        return {result, bytes};
    }

protected:
    int receive(char* buffer, int length, int flags) override {
        while (!steps.empty() && steps.front().before) {
            const std::function<void()> before = std::move(steps.front().before);
            next_step();
            before();
        }
        if (steps.empty()) return IO_END;
        const std::string& bytes = steps.front().bytes;
        if (bytes.empty()) return take_result();
        const std::size_t count =
            std::min(bytes.size() - received, static_cast<std::size_t>(length));
        std::memcpy(buffer, bytes.data() + received, count);
        if ((flags & MSG_PEEK) == 0) received += count;
        if (received == bytes.size()) next_step();
        return static_cast<int>(count);
    }

private:
    struct Step {
        std::string bytes;
        int result;
        std::function<void()> before;
    };

    ScriptedReceive& add(Step step) {
        steps.push_back(std::move(step));
        return *this;
    }

    int take_result() {
        const int result = steps.front().result;
        next_step();
        return result;
    }

    void next_step() {
        steps.pop_front();
        received = 0;
    }

    std::deque<Step> steps;
    std::size_t received = 0; // of the segment in front
};
