// SetDigest: what a set of signatures is known by: a digest of its records in their order and of its false alarms in
// theirs. Which files they came from does not count, nor what else stands there. The same on every machine. It tells
// sets apart, and is no protection from somebody who makes two on purpose.
//   Throws:  std::bad_alloc from the constructor and from hex(); nothing else does.
//   Threads: one.
#ifndef ENGINE_CAPI_SETDIGEST_H
#define ENGINE_CAPI_SETDIGEST_H

#include <memory>
#include <string>
#include <string_view>

#include "LoadObserver.h"

class SetDigest {
public:
    SetDigest();
    SetDigest(const SetDigest&) = delete;
    SetDigest& operator=(const SetDigest&) = delete;
    ~SetDigest();

    // The texts of records, with a line feed between each two. How they are divided among calls does not count.
    void addRecords(RecordKind kind, std::string_view texts);
    void addFalseAlarm(std::string_view name);

    std::string hex() const;  // 32 digits.

private:
    struct State;

    void enterSection(char kind);
    void add(std::string_view bytes);

    std::unique_ptr<State> _state;
    char _section = '\0';
};

#endif  // ENGINE_CAPI_SETDIGEST_H
