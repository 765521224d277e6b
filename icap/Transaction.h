// Transaction: one HTTP message on its way through the service: its body is received, judged once, and given back or
// replaced.
//   Throws:  std::bad_alloc and the like from the functions that say nothing else.
//   Threads: one at a time.
#ifndef VOLE_ICAP_TRANSACTION_H
#define VOLE_ICAP_TRANSACTION_H

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "BodyStore.h"
#include "ClientWatch.h"
#include "Inspection.h"
#include "Service.h"
#include "Verdict.h"

namespace icap {

class Transaction {
public:
    // `client` is its address, `fd` the connection it waits on.
    Transaction(Service& service, Message message, std::string client, int fd);

    // Never throws. A body that cannot be kept is a failure, told at the end.
    void receive(std::span<const char> bytes) noexcept;
    std::uint64_t received() const { return _received; }

    // Whether the body's media type is one that passes unseen.
    bool passesUnseen() const { return _passesUnseen; }

    // Scans what was received, the first time.
    const Verdict& verdict();

    // What blocks has a page in the place of the body.
    const std::string& makePage();

    // Whether give() would give back all that was received.
    bool hasWholeBody() const { return _received == _body.size(); }

    // The client is to go on with the body that it has.
    void leaveBodyToClient() { _leavesBody = true; }

    // The next bytes for the client, 0 at the end. REQUIRES: verdict() was called.
    std::size_t give(std::span<char> buffer);
    bool isJudged() const { return _verdict.has_value(); }

private:
    bool isTooLarge() const;
    Verdict judgeBody();

    Service& _service;
    const Message _message;
    const std::string _client;
    const std::shared_ptr<const SignatureSet> _set;
    ClientWatch::Client _watched;
    BodyStore _body;
    const bool _passesUnseen;
    std::uint64_t _received = 0;
    std::string _failure;
    std::optional<Verdict> _verdict;
    std::optional<std::string> _page;
    std::size_t _pageGiven = 0;
    bool _leavesBody = false;
};

}  // namespace icap

#endif  // VOLE_ICAP_TRANSACTION_H
