// Scans, queries, changes of settings and reloads for a while, many at a time; every verdict has to belong to one of
// the two sets that are swapped. In the last third everything is unloaded, too, over and over.
//   usage: soak [SECONDS]
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "PatternSlot.h"
#include "Scene.h"

namespace {

constexpr int kScanners = 8;
constexpr int kQueriers = 2;

class Soak {
public:
    Soak() {
        scene::writePatterns(_sets[0], "One");
        scene::writePatterns(_sets[1], "Two");
        _samples.push_back({"clean", scene::zipOf({{"hay", scene::kHay}}), ""});
        for (const scene::Content& sample : _samples) _files.write(sample.name, sample.bytes);
    }

    // Whether nothing went wrong.
    bool run(std::chrono::milliseconds duration) {
        check(load(0) == 0, "init");
        {
            std::vector<std::jthread> threads;
            for (unsigned i = 0; i < kScanners; ++i) threads.emplace_back([this, i] { scan(i); });
            for (int i = 0; i < kQueriers; ++i) threads.emplace_back([this] { query(); });
            threads.emplace_back([this] { changeSettings(); });
            threads.emplace_back([this] { reloadInTurn(); });
            std::this_thread::sleep_for(duration * 2 / 3);
            _unloading = true;
            std::this_thread::sleep_for(duration / 3);
            _over = true;
        }
        // No slot was lost on the way.
        std::string message;
        for (int i = 0; i < 2; ++i) check(reload(_sets[0].path().c_str(), message) == 0, "last reload: " + message);
        freeResource();
        std::printf("soak: %lu scans, %lu queries, %lu reloads, %lu refusals \"No idle container.\", %lu unloads, ",
                    _scans.load(), _queries.load(), _reloads, _refusals, _unloads);
        std::printf("%zu errors\n", _errors.size());
        for (const std::string& error : _errors) std::printf("soak: %s\n", error.c_str());
        return _errors.empty() && _reloads > 0 && _unloads > 0 && _scans > 0;
    }

private:
    void check(bool right, const std::string& what) {
        if (right) return;
        const std::lock_guard guard(_mutex);
        _errors.insert(what);
    }

    int load(unsigned set) {
        std::string message;
        return init(_sets[set % 2].path().c_str(), message);
    }

    void scan(unsigned number) {
        for (std::size_t turn = number; !_over; ++turn) {
            const scene::Content& sample = _samples[turn % _samples.size()];
            const std::string verdict = verdictOf(_files / sample.name);
            const bool clean = sample.verdict.empty() || _unloading;
            check(verdict == sample.verdict + "-One" || verdict == sample.verdict + "-Two" || (clean && verdict == "0"),
                  sample.name + (": " + verdict));
            ++_scans;
        }
    }

    // As long as a slot is held, it is one whole set; the lists know exactly one of the names, in any letter case.
    void query() {
        while (!_over) {
            if (const SlotLease slot = SlotLease::acquire()) {
                check(slot->paList->isFalseAlarm("fa-one") != slot->paList->isFalseAlarm("fa-two"), "false alarms");
                check(slot->paList->isSpyware("spy-one") != slot->paList->isSpyware("SPY-TWO"), "spyware");
            } else {
                check(_unloading, "nothing is loaded");
            }
            for (const char* name : {"spy-one.x", "SPY-ONE.X", "Spy-Two.x", "sPY-tWO.x"}) IsSpyware(name);
            check(IsFalseAlarm("fa-none") == 0 && IsSpyware("none") == 0, "a name of neither set");
            _queries += 2;
            std::this_thread::yield();
        }
    }

    void changeSettings() {
        for (unsigned turn = 0; !_over; ++turn) {
            VoleDebugger record{static_cast<int>(turn % 4), turn % 8 < 4 ? +[](const char*) {} : nullptr, {}};
            setDebugger(&record);
            setDumpPath(turn % 2 ? "/dev/null/a/directory/with/a/long/name" : nullptr);
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
        setDumpPath(nullptr);
    }

    void reloadInTurn() {
        std::string message;
        for (unsigned turn = 1; !_over; ++turn) {
            if (_unloading) {
                check(freeResource() == 0, "freeResource");
                check(reload(_sets[0].path().c_str(), message) == VOLE_NOT_LOADED, "a reload of nothing");
                check(load(turn) == 0, "the next init");
                ++_unloads;
            }
            const int code = reload(_sets[turn % 2].path().c_str(), message);
            _reloads += code == 0;
            if (code == 0) continue;
            check(code == VOLE_STANDBY_BUSY && message == "No idle container.", "reload: " + message);
            ++_refusals;
            --turn;  // The same set again.
            std::this_thread::yield();
        }
    }

    TempDir _sets[2], _files;
    std::vector<scene::Content> _samples = scene::contents();
    std::atomic<bool> _over = false, _unloading = false;
    std::atomic<unsigned long> _scans = 0, _queries = 0;
    unsigned long _reloads = 0, _refusals = 0, _unloads = 0;
    std::mutex _mutex;
    std::set<std::string> _errors;
};

}  // namespace

int main(int argc, char** argv) {
    const int seconds = argc > 1 ? std::atoi(argv[1]) : 30;
    return Soak().run(std::chrono::seconds(seconds > 0 ? seconds : 30)) ? EXIT_SUCCESS : EXIT_FAILURE;
}
