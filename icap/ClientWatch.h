// ClientWatch: notices that a client has gone while its body is scanned, and cancels the scan. A scan reads nothing
// from the connection, so somebody else has to look.
//   Threads: any. A client that shuts down its sending side counts as gone: ICAP has no use for a half of a connection.
#ifndef VOLE_ICAP_CLIENT_WATCH_H
#define VOLE_ICAP_CLIENT_WATCH_H

#include <atomic>
#include <mutex>
#include <set>

#include "vole.h"

namespace icap {

class ClientWatch {
public:
    // One client, as long as this lives. The descriptor of its connection must stay open that long; -1: nobody to
    // watch.
    class Client {
    public:
        Client(ClientWatch& watch, int fd);
        Client(const Client&) = delete;
        Client& operator=(const Client&) = delete;
        ~Client();

        // The scanner to cancel; null: none.
        void setScanner(vole_scanner* scanner);
        bool hasGone() const { return _hasGone.load(std::memory_order_relaxed); }

    private:
        friend class ClientWatch;
        ClientWatch& _watch;
        const int _fd;
        vole_scanner* _scanner = nullptr;  // guarded by the watch's mutex
        std::atomic<bool> _hasGone{false};
    };

    // Looks at all clients, in one system call.
    void look();

private:
    std::mutex _mutex;
    std::set<Client*> _clients;
};

}  // namespace icap

#endif  // VOLE_ICAP_CLIENT_WATCH_H
