// Requests as the service reads them: head, target, query and body, with cpp-httplib's forms in between.

#include "fuzz/input.hpp"
#include "fuzz/targets.hpp"
#include "problem.hpp"
#include "request_body.hpp"
#include "request_head.hpp"
#include "routes.hpp"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <httplib.h>
#include <string>
#include <vector>

namespace veldan_fuzz {
namespace {

namespace service = veldan::service;

constexpr std::size_t mostBody = 1 << 16;

// Nothing here asks for the services of a call.
service::Call emptyCall() {
    alignas(std::max_align_t) static unsigned char room = 0;
    return {reinterpret_cast<service::Services&>(room), {}, {}, "", "", {}, {}};
}

// Gives a request as it was accepted, and takes an answer.
class Peer : public httplib::Stream {
public:
    explicit Peer(std::string request) : request_(std::move(request)) {}

    bool is_readable() const override { return true; }
    bool is_writable() const override { return true; }
    ssize_t read(char* to, std::size_t size) override {
        const std::size_t part = request_.copy(to, size, read_);
        read_ += part;
        return static_cast<ssize_t>(part);
    }
    ssize_t write(const char* from, std::size_t size) override {
        answer_.append(from, size);
        return static_cast<ssize_t>(size);
    }
    using httplib::Stream::write;
    void get_remote_ip_and_port(std::string& ip, int& port) const override {
        ip = "127.0.0.1";
        port = 1;
    }
    void get_local_ip_and_port(std::string& ip, int& port) const override { get_remote_ip_and_port(ip, port); }
    socket_t socket() const override { return 0; }

    const std::string& answer() const { return answer_; }

private:
    std::string request_;
    std::size_t read_ = 0;
    std::string answer_;
};

class Forms : public httplib::Server {
public:
    Forms() {
        set_payload_max_length(mostBody);
        const auto handler = [this](const httplib::Request& request, httplib::Response& response) {
            take(request);
            response.status = 200;
        };
        Post("[^]*", handler);
        Patch("[^]*", handler);
    }

    void answer(Peer& peer, service::Body wanted) {
        wanted_ = wanted;
        bool closed = false;
        process_request(peer, false, closed, nullptr);
    }

private:
    void take(const httplib::Request& request) const {
        service::Call call = emptyCall();
        if (request.is_multipart_form_data()) {
            std::vector<service::Part> parts;
            for (const auto& [name, file] : request.files)
                parts.push_back({name, file.filename, file.content_type, &file.content});
            service::takeParts(wanted_, parts, call);
        } else {
            service::takeWhole(wanted_, request.body, call);
        }
        std::size_t bytes = 0;
        for (const auto& [part, uploads] : call.uploads)
            for (const service::Upload& upload : uploads) {
                require(!upload.bytes.empty() && !upload.name.empty() && upload.name.size() <= 200);
                require(upload.name.find_first_of("/\\\n") == std::string::npos);
                bytes += upload.bytes.size();
            }
        require(bytes <= request.body.size() + mostBody);
    }

    service::Body wanted_ = service::Body::None;
};

std::size_t occurrences(const std::string& text, const std::string& words) {
    std::size_t count = 0;
    for (std::size_t at = text.find(words); at != std::string::npos; at = text.find(words, at + 1))
        ++count;
    return count;
}

void request(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::size_t end = text.find("\r\n\r\n");
    if (end == std::string::npos)
        return;
    try {
        const service::RequestHead head = service::readHead(text.substr(0, end + 4));
        std::string lower = head.forwarded;
        std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
        require(occurrences(lower, "\ncontent-length:") == 1 && occurrences(lower, "\ntransfer-encoding") == 0);
        require(occurrences(lower, "\r\n\r\n") == 1 && lower.find('\0') == std::string::npos);
        require(std::count(lower.begin(), lower.end(), '\n') == std::count(lower.begin(), lower.end(), '\r'));

        const std::size_t mark = std::min(head.target.find('?'), head.target.size());
        const auto path = service::percentDecoded(head.target.substr(1, mark - 1), false);
        std::vector<std::string> values;
        const std::vector<const service::Route*> found =
            path ? service::routesAt({"v1", *path}, values) : std::vector<const service::Route*>();
        const service::Route& route =
            found.empty() ? service::routes()[size % service::routes().size()] : *found.front();
        service::Call call = emptyCall();
        service::takeQuery(route, head.target.substr(std::min(mark + 1, head.target.size())), call);
        require(call.query.size() <= route.query.size());
        service::requireType(route.body, head.contentType);
        if (head.bodyBytes > mostBody)
            return;
        static Forms forms;
        Peer peer(head.forwarded + text.substr(end + 4, static_cast<std::size_t>(head.bodyBytes)));
        forms.answer(peer, route.body);
        require(peer.answer().empty() || peer.answer().compare(0, 9, "HTTP/1.1 ") == 0);
    } catch (const service::Problem& problem) {
        require(problem.status() >= 400 && problem.status() < 600);
    }
}

} // namespace

const std::vector<Target>& targets() {
    static const std::vector<Target> all = {{"service_request", request}};
    return all;
}

} // namespace veldan_fuzz
