// Server.h: the few things that the parts of the service want of the server they run in.
//   Threads: any, but newStatistic(): before the server forks.
#ifndef VOLE_ICAP_SERVER_H
#define VOLE_ICAP_SERVER_H

#include <cstdint>
#include <string>
#include <string_view>

namespace icap {

enum class LogLevel { error = 1, information = 2, detail = 5 };  // What the server's DebugLevel counts.

// A line of the server's log; escaped, so that no name can make another line.
void log(LogLevel level, std::string_view text);

// A counter in the statistics of all processes; -1 when there is no room.
int newStatistic(const std::string& label);
void addToStatistics(int id, std::uint64_t number);

// The server's folder for temporary files.
std::string serverTempDir();

}  // namespace icap

#endif  // VOLE_ICAP_SERVER_H
