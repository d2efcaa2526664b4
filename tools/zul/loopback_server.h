// A small HTTP/1.1 server on the loopback interface for `zul view`: GET and HEAD of files named by
// a lookup function, with single byte ranges (206, 416) as a browser's range reads send them.
// One thread a connection; every response closes its connection.
#pragma once

#include <functional>
#include <string>

namespace zultool {

class LoopbackServer {
public:
    // Maps a request path (without the query) to a file, or "" for 404; and to a page that
    // redirects, for the paths that `redirect` answers with a non-empty location.
    struct Routes {
        std::function<std::string(const std::string& path)> file;
        std::function<std::string(const std::string& path)> redirect;
    };

    explicit LoopbackServer(Routes routes) : routes_(std::move(routes)) {}
    ~LoopbackServer();
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    // Binds 127.0.0.1:port (0: a free port) and listens; throws std::runtime_error naming why not.
    void listen(int port);
    int port() const { return port_; }
    // Serves until the process ends.
    [[noreturn]] void run();

private:
    void serve(int connection) const;

    Routes routes_;
    int socket_ = -1;
    int port_ = 0;
};

// What a Range header asks of a file of `size` bytes: whole, the bytes [first, last], or none
// that exist (416). Forms: bytes=A-B, bytes=A-, bytes=-N; several ranges are served whole.
struct ByteRange {
    enum class Kind { Whole, Part, Unsatisfiable } kind = Kind::Whole;
    long long first = 0;
    long long last = 0;
};
ByteRange parseRange(const std::string& header, long long size);

}  // namespace zultool
