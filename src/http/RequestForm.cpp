#include "config/Config.h"
#include "core/Clock.h"
#include "core/Log.h"
#include "http/FormBody.h"
#include "http/LeadingNumber.h"
#include "http/Request.h"
#include "net/Socket.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace {

std::uint64_t upload_limit() {
    return static_cast<std::uint64_t>(
        std::max(0, Config::Get("UploadLimit", false)->GetValue(104857600)));
}

std::string_view view_of(const std::vector<char>& bytes) { return {bytes.data(), bytes.size()}; }

} // namespace

int Request::ReadForm() {
    if (!complete || form_complete || method != METHOD_POST) return 0;
    const int read = receive_form_data();
    return read < 0 && read != IO_AGAIN ? IO_FAILED : read;
}

int Request::receive_form_data() {
    const std::string told = GetHeader("Content-Length");
    if (method != METHOD_POST || told.find('-') != std::string::npos) return finish_form(0);
    const auto length = leading_number<std::uint64_t>(told);
    if (length == 0) return finish_form(0);
    const std::uint64_t limit = upload_limit();
    if (length > limit) return refuse_as_too_large(limit);
    const int read = read_body(length);
    if (read < 1) return read == IO_FAILED ? IO_FAILED : wait_for_body();
    last_body_byte = now();
    if (post_data.size() < length) return read;
    parse_body();
    return finish_form(read);
}

int Request::finish_form(int result) {
    form_complete = true;
    return result;
}

int Request::wait_for_body() {
    if (last_body_byte == 0) last_body_byte = now();
    return difftime(now(), last_body_byte) >= WAIT_SECONDS ? IO_FAILED : IO_AGAIN;
}

// Takes what the socket has, within reason, so that memory grows with what arrives and not with
// what was announced.
int Request::read_body(std::uint64_t length) {
    constexpr int MOST_PIECES = 16;
    std::array<char, 16384> piece;
    int total = 0;
    for (int i = 0; i < MOST_PIECES && post_data.size() < length; ++i) {
        const auto room = std::min<std::uint64_t>(piece.size(), length - post_data.size());
        const int read = socket->Recv(piece.data(), static_cast<int>(room), 0, 0);
        if (read < 1) return total > 0 ? total : read;
        post_data.insert(post_data.end(), piece.data(), piece.data() + read);
        total += read;
    }
    return total;
}

void Request::parse_body() {
    const std::string type = GetHeader("Content-Type");
    if (type == "application/x-www-form-urlencoded")
        keep_form({.fields = parse_form(view_of(post_data))});
    else if (type.find("multipart/form-data") != std::string::npos)
        parse_multipart_body(type);
}

void Request::parse_multipart_body(const std::string& content_type) {
    const std::string boundary = multipart_boundary(content_type);
    if (boundary.empty()) {
        LogWrite(Log::NORMAL) << peer() << "Multipart form data submitted with no boundary defined."
                              << std::endl;
        return;
    }
    std::optional<MultipartForm> found = parse_multipart(view_of(post_data), boundary);
    if (!found) {
        LogWrite(Log::NORMAL) << peer()
                              << "Multipart form data submitted boundary position not found."
                              << std::endl;
        return;
    }
    for (const TransmittedObject& file : found->files)
        LogWrite(Log::NORMAL) << peer() << "Received File: " << log_text(file.filename)
                              << " of type " << log_text(file.type) << " (" << log_text(file.name)
                              << ")" << std::endl;
    keep_form(std::move(*found));
}

void Request::keep_form(FormData data) {
    auto taken = std::make_unique<FormData>(std::move(data));
    spin_guard guard(field_lock);
    form.swap(taken);
}

std::string Request::GetBody() {
    const auto length = leading_number<std::uint64_t>(GetHeader("Content-Length"));
    if (length == 0 || length > upload_limit() || !socket) return {};
    std::string body(length, '\0');
    const int size = static_cast<int>(length);
    // Kept: each piece goes behind the one before it and not behind all of them; the few small
    // bodies that were ever read this way came in two pieces at most.
    int read = socket->Recv(body.data(), size, 0, WAIT_SECONDS);
    while (read > 0 && read < size)
        read = socket->Recv(body.data() + read, size - read, 0, WAIT_SECONDS);
    return body;
}
