// StopAfter: a processor that lets unpacking go on so many times, and then stops it.
#ifndef TESTS_SUPPORT_STOPAFTER_H
#define TESTS_SUPPORT_STOPAFTER_H

#include <string>

#include "unarchiver/Pakfold.h"

namespace ZOV_SPACE {

class StopAfter : public DecompressProcessor {
public:
    explicit StopAfter(int times) : _left(times) {}

    int begun = 0;  // Entries.

    int init() override { return ++begun; }
    int setFileName(std::string&) override { return 0; }
    int setContentType(std::string&) override { return 0; }
    int check(InputStream*) override { return 0; }
    int check(BufferBase*) override { return 0; }
    int requiredLength() override { return 0; }
    int getAction() override { return _left-- > 0 ? 1 : kStop; }

private:
    int _left;
};

}  // namespace ZOV_SPACE

#endif  // TESTS_SUPPORT_STOPAFTER_H
