#include "ClientWatch.h"

#include <poll.h>

#include <vector>

namespace icap {

ClientWatch::Client::Client(ClientWatch& watch, int fd) : _watch(watch), _fd(fd) {
    const std::lock_guard lock(_watch._mutex);
    _watch._clients.insert(this);
}

ClientWatch::Client::~Client() {
    const std::lock_guard lock(_watch._mutex);
    _watch._clients.erase(this);
}

void ClientWatch::Client::setScanner(vole_scanner* scanner) {
    const std::lock_guard lock(_watch._mutex);
    _scanner = scanner;
    if (_scanner != nullptr && hasGone()) vole_scanner_cancel(_scanner);
}

void ClientWatch::look() {
    const std::lock_guard lock(_mutex);
    std::vector<pollfd> polled;
    polled.reserve(_clients.size());
    for (const Client* client : _clients) polled.push_back({client->_fd, POLLRDHUP, 0});
    if (polled.empty() || ::poll(polled.data(), polled.size(), 0) <= 0) return;
    auto answer = polled.begin();
    for (Client* client : _clients) {
        if ((answer++->revents & (POLLRDHUP | POLLHUP | POLLERR)) == 0) continue;
        client->_hasGone = true;
        if (client->_scanner != nullptr) vole_scanner_cancel(client->_scanner);
    }
}

}  // namespace icap
