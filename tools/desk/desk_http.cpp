#include "desk_http.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <microhttpd.h>
#include <nlohmann/json.hpp>

namespace
{

enum {
    EVENT_BLOCK = 65536,       // bytes handed to the library at once
    CONNECTION_BUFFER = 262144 // bytes, the library's
};

// What the page may load and do, and that it may stand in no other page.
const char POLICY[] =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob:; "
    "media-src 'self' blob: mediastream:; connect-src 'self'; base-uri 'none'; "
    "form-action 'none'; frame-ancestors 'none'";

std::string Header(MHD_Connection* connection, const char* name)
{
    const char* const value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
    return value != nullptr ? value : "";
}

MHD_Result AddQuery(void* request, MHD_ValueKind, const char* key, const char* value)
{
    static_cast<HttpRequest*>(request)->query[key] = value != nullptr ? value : "";
    return MHD_YES;
}

ssize_t TakeEvents(void* listener, uint64_t, char* bytes, size_t size)
{
    auto* const to = static_cast<HttpListener*>(listener);
    if (to->queue.size() > HTTP_QUEUE_MAX) {
        return MHD_CONTENT_READER_END_WITH_ERROR;
    }
    if (to->queue.empty()) {
        to->waits = true;
        MHD_suspend_connection(to->connection);
        return 0;
    }
    const size_t length = std::min(size, to->queue.size());
    to->queue.copy(bytes, length);
    to->queue.erase(0, length);
    return static_cast<ssize_t>(length);
}

MHD_Response* MakeResponse(Http& http, MHD_Connection* connection, const HttpAnswer& answer)
{
    if (answer.type != HTTP_EVENTS) {
        return MHD_create_response_from_buffer(
            answer.body.size(), const_cast<char*>(answer.body.data()), MHD_RESPMEM_MUST_COPY);
    }
    http.AllListeners().push_back({connection, answer.body, false});
    return MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, EVENT_BLOCK, &TakeEvents,
                                             &http.AllListeners().back(), nullptr);
}

// A request on its way. One that is refused keeps nothing of its body.
struct Incoming {
    HttpRequest request;
    std::string refusal;
};

// One request, called for its head, for each piece of its body, and at its end.
MHD_Result Handle(void* self, MHD_Connection* connection, const char* url, const char* method,
                  const char*, const char* upload, size_t* uploadBytes, void** state)
{
    auto& http = *static_cast<Http*>(self);
    auto* incoming = static_cast<Incoming*>(*state);
    if (incoming == nullptr) {
        incoming = new Incoming{{method, url, {}, ""}, http.Refusal(connection)};
        *state = incoming;
        MHD_get_connection_values(connection, MHD_GET_ARGUMENT_KIND, &AddQuery, &incoming->request);
        return MHD_YES;
    }
    std::string& body = incoming->request.body;
    if (*uploadBytes > 0) {
        // A refused or too large body is read to its end: a client that still sends may not see the
        // answer.
        if (incoming->refusal.empty() && body.size() <= HTTP_UPLOAD_MAX) {
            body.append(upload, *uploadBytes);
        }
        *uploadBytes = 0;
        return MHD_YES;
    }
    const HttpAnswer answer = incoming->refusal.empty() ? http.Answer(incoming->request)
                                                        : Http_Error(403, incoming->refusal);
    const std::unique_ptr<MHD_Response, void (*)(MHD_Response*)> response(
        MakeResponse(http, connection, answer), &MHD_destroy_response);
    const std::pair<const char*, std::string> headers[] = {
        {"Content-Type", answer.type},
        {"Cache-Control", "no-store"},
        {"Content-Security-Policy", POLICY},
        {"Cross-Origin-Resource-Policy", "same-origin"},
        {"X-Content-Type-Options", "nosniff"}};
    for (const auto& [name, value] : headers) {
        MHD_add_response_header(response.get(), name, value.c_str());
    }
    return MHD_queue_response(connection, answer.status, response.get());
}

void Completed(void* self, MHD_Connection* connection, void** state, MHD_RequestTerminationCode)
{
    static_cast<Http*>(self)->AllListeners().remove_if(
        [&](const HttpListener& listener) { return listener.connection == connection; });
    delete static_cast<Incoming*>(*state);
    *state = nullptr;
}

} // namespace

HttpAnswer Http_Error(unsigned int status, const std::string& words)
{
    const nlohmann::json json = {{"error", words}};
    return {status, "application/json",
            json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)};
}

Http::~Http()
{
    for (HttpListener& listener : listeners_) {
        if (listener.waits) {
            MHD_resume_connection(
                listener.connection); // the library wants none suspended at its end
        }
    }
    if (daemon_ != nullptr) {
        MHD_stop_daemon(daemon_);
    }
}

bool Http::Open(int socket, uint16_t port, HttpHandler handler, std::string& error)
{
    port_ = port;
    handler_ = std::move(handler);
    daemon_ = MHD_start_daemon(MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME, port, nullptr, nullptr,
                               &Handle, this, MHD_OPTION_LISTEN_SOCKET, socket,
                               MHD_OPTION_CONNECTION_LIMIT, unsigned{HTTP_CONNECTIONS_MAX},
                               MHD_OPTION_CONNECTION_MEMORY_LIMIT, size_t{CONNECTION_BUFFER},
                               MHD_OPTION_CONNECTION_TIMEOUT, unsigned{HTTP_SILENCE_S},
                               MHD_OPTION_NOTIFY_COMPLETED, &Completed, this, MHD_OPTION_END);
    error = "the HTTP library does not start";
    return daemon_ != nullptr;
}

int Http::WaitFd() const
{
    return MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd;
}

bool Http::Run()
{
    MHD_UNSIGNED_LONG_LONG waitMs = 0;
    MHD_run(daemon_);
    return MHD_get_timeout(daemon_, &waitMs) == MHD_YES && waitMs == 0;
}

void Http::Publish(const std::string& event)
{
    for (HttpListener& listener : listeners_) {
        listener.queue += listener.queue.size() > HTTP_QUEUE_MAX ? "" : event;
        if (listener.waits) {
            listener.waits = false;
            MHD_resume_connection(listener.connection);
        }
    }
}

// A page of another site that this browser shows can send requests here, too, under another name
// for this machine even as one of the same site: whoever is named, and for whom the browser asks,
// is looked at.
std::string Http::Refusal(MHD_Connection* connection) const
{
    const std::string port = ":" + std::to_string(port_);
    const std::string host = Header(connection, "Host");
    const std::string origin = Header(connection, "Origin");
    const std::string site = Header(connection, "Sec-Fetch-Site");
    if (host != "127.0.0.1" + port && host != "localhost" + port) {
        return "not a name of this server: " + host;
    }
    const bool ours = (origin.empty() || origin == "http://" + host) &&
                      (site.empty() || site == "same-origin" || site == "none");
    if (ours) {
        return "";
    }
    return origin.empty() ? "opened from another page: type the address into the browser"
                          : "a request of another page: " + origin;
}

HttpAnswer Http::Answer(const HttpRequest& request) const
{
    try { // nothing may be thrown through the library
        return handler_(request);
    } catch (const std::exception& exception) {
        return Http_Error(500, exception.what());
    }
}
