// The table of functions by which c-icap knows the service, and the translation between its requests and ours. The
// server calls these functions from C: nothing may be thrown through them.
#include <c_icap/c-icap.h>
// Behind what they need.
#include <c_icap/access.h>
#include <c_icap/commands.h>
#include <c_icap/request.h>
#include <c_icap/service.h>
#include <c_icap/simple_api.h>

#include <array>
#include <exception>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "HttpText.h"
#include "Server.h"
#include "Service.h"
#include "Transaction.h"

namespace {

using icap::Action;
using icap::Service;
using icap::Transaction;
using icap::Verdict;

std::unique_ptr<Service> theService;

// What the call returns, or `failed` when it throws.
template <class Result, class Call>
Result guarded(Result failed, Call call) noexcept {
    try {
        return call();
    } catch (const std::exception& error) {
        icap::log(icap::LogLevel::error, error.what());
    } catch (...) {
        icap::log(icap::LogLevel::error, "unknown failure");
    }
    return failed;
}

Transaction* transactionOf(const ci_request_t* request) { return static_cast<Transaction*>(ci_service_data(request)); }

bool isPreview(const ci_request_t* request) { return ci_req_preview_size(request) >= 0; }

// ------------------------------------------------------------------------------------------------- what came in

ci_headers_list_t* messageHeaders(ci_request_t* request) {
    return ci_req_type(request) == ICAP_REQMOD ? ci_http_request_headers(request) : ci_http_response_headers(request);
}

// A header may come several times: codings add up, and one type of a form is enough to make it one.
void noteHeader(void* data, const char* name, const char* value) noexcept {
    guarded(0, [&] {
        auto& message = *static_cast<icap::Message*>(data);
        const std::string key = icap::lowerCase(name);
        if (key == "content-encoding")
            message.contentEncoding += std::string(message.contentEncoding.empty() ? "" : ",") + value;
        if (key == "content-type" && (message.contentType.empty() || icap::lowerCase(value).starts_with("multipart/")))
            message.contentType = value;
        if (key == "content-range") message.isPartial = true;
        return 0;
    });
}

icap::Message messageOf(ci_request_t* request) {
    icap::Message message;
    std::array<char, 4096> url{};
    if (ci_http_request_url(request, url.data(), url.size() - 1) > 0) message.url = url.data();
    const char* const line = ci_http_request(request);
    if (line != nullptr) message.method = std::string_view(line).substr(0, std::string_view(line).find(' '));
    if (ci_headers_list_t* const headers = messageHeaders(request)) ci_headers_iterate(headers, &message, noteHeader);
    return message;
}

std::string clientOf(ci_request_t* request) {
    std::array<char, 64> address{};
    if (const ci_ip_t* const ip = ci_http_client_ip(request)) {
        if (ci_inet_ntoa(ip->family, &ip->address, address.data(), static_cast<int>(address.size())) != nullptr)
            return address.data();
    }
    return ci_conn_remote_ip(request->connection, address.data()) != nullptr ? address.data() : "";
}

// ------------------------------------------------------------------------------------------------- what goes out

void setAttributes(ci_request_t* request, const Verdict& verdict) {
    const auto set = [&](const char* name, const std::string& text) {
        ci_request_set_str_attribute(request, name, text.empty() ? "-" : icap::headerSafe(text).c_str());
    };
    set("vole_verdict", verdict.word);
    set("vole_threat", verdict.threat);
    set("vole_member", verdict.member);
    for (const std::string& header : verdict.headers()) ci_icap_add_xheader(request, header.c_str());
}

void markMessage(ci_request_t* request, const Verdict& verdict) {
    const std::string mark = verdict.mark();
    if (ci_req_type(request) == ICAP_REQMOD) {
        ci_http_request_add_header(request, mark.c_str());
    } else {
        ci_http_response_add_header(request, mark.c_str());
    }
}

int block(ci_request_t* request, Transaction& transaction) {
    // Headers that have left promise the body; what remains is not to send it.
    if (ci_req_sent_data(request)) return CI_ERROR;
    const std::string length = "Content-Length: " + std::to_string(transaction.makePage().size());
    ci_http_response_create(request, 1, 1);
    for (const char* const header : {"HTTP/1.1 403 Forbidden", "Content-Type: text/html; charset=utf-8", length.c_str(),
                                     "Cache-Control: no-store", "Server: Vole Engine"})
        ci_http_response_add_header(request, header);
    return CI_MOD_DONE;
}

int pass(ci_request_t* request, Transaction& transaction, const Verdict& verdict) {
    const bool isMarked = verdict.action == Action::passMarked;
    if (!ci_req_sent_data(request)) {
        if (isMarked && ci_req_allow206_outside_preview(request)) {
            markMessage(request, verdict);
            transaction.leaveBodyToClient();
            ci_request_206_origin_body(request, 0);
            return CI_MOD_ALLOW206;
        }
        if (ci_req_allow204(request)) return CI_MOD_ALLOW204;
        if (isMarked) markMessage(request, verdict);
    }
    return transaction.hasWholeBody() ? CI_MOD_DONE : CI_ERROR;
}

// ------------------------------------------------------------------------------------------- a request's functions

void* beginRequest(ci_request_t* request) noexcept {
    return guarded<void*>(nullptr, [&]() -> void* {
        if (ci_req_type(request) == ICAP_OPTIONS) return nullptr;
        return std::make_unique<Transaction>(*theService, messageOf(request), clientOf(request),
                                             request->connection->fd)
            .release();
    });
}

void endRequest(void* data) noexcept { std::unique_ptr<Transaction>(static_cast<Transaction*>(data)); }

int endOfData(ci_request_t* request) noexcept {
    return guarded(CI_ERROR, [&] {
        Transaction* const transaction = transactionOf(request);
        if (transaction == nullptr) return CI_ERROR;
        const bool isNew = !transaction->isJudged();
        const Verdict& verdict = transaction->verdict();
        if (isNew) setAttributes(request, verdict);
        if (verdict.action == Action::fail) return CI_ERROR;
        return verdict.action == Action::block ? block(request, *transaction) : pass(request, *transaction, verdict);
    });
}

// A whole body in the preview is judged at once: no client has to be asked whether it may stop here.
int judgePreview(ci_request_t* request, Transaction& transaction) {
    const Verdict& verdict = transaction.verdict();
    setAttributes(request, verdict);
    if (verdict.action == Action::fail) return CI_ERROR;
    const bool wantsMark = verdict.action == Action::passMarked && ci_req_allow206_outside_preview(request);
    return verdict.action == Action::block || wantsMark ? CI_MOD_CONTINUE : CI_MOD_ALLOW204;
}

int checkPreview(char* data, int size, ci_request_t* request) noexcept {
    return guarded(CI_ERROR, [&] {
        Transaction* const transaction = transactionOf(request);
        if (transaction == nullptr) return CI_ERROR;
        if (!ci_req_hasbody(request)) return CI_MOD_ALLOW204;
        if (data != nullptr && size > 0) transaction->receive({data, static_cast<std::size_t>(size)});
        const bool mayStop = isPreview(request) || ci_req_allow204(request);
        if (isPreview(request) && ci_req_hasalldata(request)) return judgePreview(request, *transaction);
        if (transaction->passesUnseen() && mayStop) return judgePreview(request, *transaction);
        return CI_MOD_CONTINUE;
    });
}

// Headers of an answer that leave early keep a client going which stalls until it sees some, and which cannot be told
// "as it came" later anyway.
void sendHeadersEarly(ci_request_t* request, const Transaction& transaction) {
    constexpr std::uint64_t kBytesBefore = 8 * 1024;
    // Uploads do not stall; nor is what was sent early of any use when malware is found.
    if (!theService->settings().earlyHeaders || ci_req_type(request) != ICAP_RESPMOD) return;
    if (ci_req_allow204(request) || transaction.received() < kBytesBefore) return;
    ci_req_unlock_data(request);
}

int moveBody(char* out, int* outSize, char* in, int* inSize, int /*isLast*/, ci_request_t* request) noexcept {
    return guarded(CI_ERROR, [&] {
        Transaction* const transaction = transactionOf(request);
        if (transaction == nullptr) return CI_ERROR;
        if (in != nullptr && inSize != nullptr && *inSize > 0) {
            transaction->receive({in, static_cast<std::size_t>(*inSize)});
            sendHeadersEarly(request, *transaction);
        }
        if (out == nullptr || outSize == nullptr) return CI_OK;
        if (!transaction->isJudged()) {
            *outSize = 0;
            return CI_OK;
        }
        const std::size_t given = transaction->give({out, static_cast<std::size_t>(*outSize)});
        *outSize = given == 0 ? CI_EOF : static_cast<int>(given);
        return CI_OK;
    });
}

int answerOptions(ci_request_t*) noexcept { return theService && theService->signatures() ? CI_OK : CI_ERROR; }

// ----------------------------------------------------------------------------------------------- the service's life

int applySetting(const char* /*name*/, const char** words, void* data) noexcept {
    // The problem is told when the service is to begin, and keeps it from beginning; the server would end for it.
    return guarded(1, [&] {
        std::vector<std::string_view> given;
        for (; words != nullptr && *words != nullptr; ++words) given.emplace_back(*words);
        theService->apply(*static_cast<const icap::SettingOption*>(data), given);
        return 1;
    });
}

// Filled in before the server reads it. Modules are loaded into one name space, in which another one's "service" may
// come before ours: code that ran to initialise ours could write to that one.
constinit std::array<ci_conf_entry, 64> optionTable{};

// The server's table wants pointers to what may be changed, which these are not.
void fillOptionTable() {
    const auto options = icap::settingOptions();
    for (std::size_t i = 0; i < options.size(); ++i) {
        // at(), so that there is one empty entry left behind them.
        optionTable.at(i + 1) = {};
        optionTable.at(i) = {options[i].name, const_cast<icap::SettingOption*>(&options[i]), applySetting,
                             options[i].help};
    }
}

// The server's data of the service. It moves while the server starts, and stands still from the last step of that on.
ci_service_xdata_t* serverData = nullptr;

int initService(ci_service_xdata_t*, ci_server_conf*) noexcept {
    return guarded(CI_ERROR, [] {
        fillOptionTable();
        theService =
            std::make_unique<Service>([](const std::string& tag) { ci_service_set_istag(serverData, tag.c_str()); });
        return CI_OK;
    });
}

extern "C" {
static void reloadCommand(const char*, int, const char**) {
    guarded(0, [] { return theService->reload(), 0; });
}
static void childStarts(const char*, int, void*) {
    guarded(0, [] { return theService->start(), 0; });
}
static void childStops(const char*, int, void*) {
    guarded(0, [] { return theService->stop(), 0; });
}
static void starterStarted(const char*, int, void*) {
    guarded(0, [] { return theService->dropSet(), 0; });
}
}

int postInitService(ci_service_xdata_t* server, ci_server_conf*) noexcept {
    return guarded(CI_ERROR, [&] {
        const icap::Settings& settings = theService->settings();
        serverData = server;
        theService->prepare();
        ci_service_set_preview(server, settings.preview);
        ci_service_set_options_ttl(server, static_cast<int>(settings.optionsTtl.count()));
        ci_service_enable_204(server);
        ci_service_enable_206(server);
        ci_service_set_transfer_preview(server, "*");
        ci_service_set_xopts(server, CI_XCLIENTIP | CI_XAUTHENTICATEDUSER);
        ci_service_add_option_handler(server, "vole", answerOptions);
        // The server compares all that was written, with the end of the line that most programs write.
        for (const char* const command : {"vole:reload", "vole:reload\n"})
            ci_command_register_ctl_cmd(command, CI_CMD_CHILDS_PROC, reloadCommand);
        ci_command_register_action("vole::child_start", CI_CMD_CHILD_START, nullptr, childStarts);
        ci_command_register_action("vole::child_stop", CI_CMD_CHILD_STOP, nullptr, childStops);
        // Once the first children are there, which share its pages.
        ci_command_register_action("vole::started", CI_CMD_MONITOR_ONDEMAND, nullptr, starterStarted);
        ci_command_schedule("vole::started", nullptr, 1);
        return CI_OK;
    });
}

void closeService() noexcept { theService.reset(); }

}  // namespace

CI_DECLARE_MOD_DATA constinit ci_service_module_t service = {
    "vole",                           // name in addresses and options
    "Vole Engine signature scanner",  // description
    ICAP_RESPMOD | ICAP_REQMOD,
    initService,
    postInitService,
    closeService,
    beginRequest,
    endRequest,
    checkPreview,
    endOfData,
    moveBody,
    optionTable.data(),
    nullptr,
};
