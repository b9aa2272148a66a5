// The desk's HTTP side, over libmicrohttpd: requests of its own page alone, and events to it.
//
// One thread: Open, then Run whenever WaitFd is readable, and at least every second.
#ifndef TOOLS_DESK_HTTP_H
#define TOOLS_DESK_HTTP_H

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <string>

enum {
    HTTP_UPLOAD_MAX = 32 << 20, // bytes of a request's body
    HTTP_CONNECTIONS_MAX = 64,
    HTTP_QUEUE_MAX = 16 << 20, // bytes that a client of events may be behind before it is cut off
    HTTP_SILENCE_S = 60        // of a connection before it is closed
};

struct HttpRequest {
    std::string method;
    std::string path; // decoded, without the query
    std::map<std::string, std::string> query;
    std::string body; // longer than HTTP_UPLOAD_MAX: not all of it, for the handler to refuse
};

const char HTTP_EVENTS[] = "text/event-stream";

struct HttpAnswer {
    unsigned int status = 200;
    std::string type = "application/json"; // HTTP_EVENTS: after the body comes what Publish sends
    std::string body = "{}";
};

using HttpHandler = std::function<HttpAnswer(const HttpRequest&)>;

// {"error": words} with that status.
HttpAnswer Http_Error(unsigned int status, const std::string& words);

struct MHD_Connection;
struct MHD_Daemon;

// A client that takes events.
struct HttpListener {
    MHD_Connection* connection = nullptr;
    std::string queue; // what it did not take yet; longer than HTTP_QUEUE_MAX: it is cut off
    bool waits = false;
};

class Http
{
public:
    ~Http();

    // Serves a socket that listens on 127.0.0.1:port. A request is answered by `handler` if it
    // names this host, and a browser's comes from a page of ours; others are refused. Returns false
    // with the reason.
    bool Open(int socket, uint16_t port, HttpHandler handler, std::string& error);

    int WaitFd() const;

    // Does what there is to do. Returns true when there is more, which WaitFd need not show.
    bool Run();

    // To all clients of events, now or when they can take it: "data: ...", two line ends.
    void Publish(const std::string& event);

    // For the library's callbacks: why a request is not of this server's own page, empty if it is;
    // and what it is answered.
    std::string Refusal(MHD_Connection* connection) const;
    HttpAnswer Answer(const HttpRequest& request) const;
    std::list<HttpListener>& AllListeners() { return listeners_; }

private:
    MHD_Daemon* daemon_ = nullptr;
    uint16_t port_ = 0;
    HttpHandler handler_;
    std::list<HttpListener> listeners_;
};

#endif
