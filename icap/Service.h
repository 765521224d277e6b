// Service: what lives as long as the service does in one process of the server: options, set, pages, counters, and a
// thread that looks after them.
//   Life:    made when the module is loaded; options are applied; prepare() before the server forks; start() in each
//            child, stop() before it ends. No thread runs outside of these two.
//   Threads: requests, from start() on: any number.
#ifndef VOLE_ICAP_SERVICE_H
#define VOLE_ICAP_SERVICE_H

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "ClientWatch.h"
#include "Inspection.h"
#include "Metrics.h"
#include "Page.h"
#include "Settings.h"
#include "SignatureStore.h"

namespace icap {

class Service {
public:
    // Told, on any thread, of the tag of a set that has just been taken into use.
    explicit Service(std::function<void(const std::string& tag)> onSet);

    // One line of the configuration. What is wrong with it is kept for prepare(), and the service will not serve.
    void apply(const SettingOption& option, std::span<const std::string_view> words);

    // Loads set and pages. What fails is logged, and leaves a service that answers nothing but errors.
    void prepare();

    // The server's process that only starts others has no use for the set; those it starts later load their own.
    void dropSet() { _store.drop(); }

    void start();
    void stop();

    // Has the folder loaded anew, soon and on another thread: who tells of it may tell more meanwhile. When loading
    // fails, it is logged, and the set in use stays in use.
    void reload() { _isReloadDue = true; }

    // Null: not serving.
    std::shared_ptr<const SignatureSet> signatures() const { return _isUsable ? _store.current() : nullptr; }

    // Counts and logs what came of one body.
    void record(const Message& message, const std::string& client, const FileReport& report, const Verdict& verdict);

    const Settings& settings() const { return _settings; }
    const Pages& pages() const { return *_pages; }
    ClientWatch& clients() { return _clients; }

private:
    bool load();
    void reloadIfDue();
    void lookAfter(const std::stop_token& stopping);
    void logFindings(const Message& message, const std::string& client, const FileReport& report);
    void writeMetrics();

    const std::function<void(const std::string& tag)> _onSet;
    Settings _settings;
    std::vector<std::string> _settingErrors;
    bool _isUsable = false;
    std::atomic<bool> _isReloadDue = false;
    std::optional<Pages> _pages;
    SignatureStore _store;
    ClientWatch _clients;
    Metrics _metrics;
    std::mutex _caretakerMutex;  // for waiting alone
    std::condition_variable_any _caretakerWakesUp;
    std::jthread _caretaker;
};

}  // namespace icap

#endif  // VOLE_ICAP_SERVICE_H
