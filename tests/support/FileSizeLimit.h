// FileSizeLimit: while it lives, no file of this process can grow beyond a size; a write that tries fails with EFBIG.
#ifndef TESTS_SUPPORT_FILESIZELIMIT_H
#define TESTS_SUPPORT_FILESIZELIMIT_H

#include <signal.h>
#include <sys/resource.h>

namespace ZOV_SPACE {

class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : _oldHandler(::signal(SIGXFSZ, SIG_IGN)) {
        ::getrlimit(RLIMIT_FSIZE, &_old);
        const rlimit limit{bytes, _old.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &_old);
        ::signal(SIGXFSZ, _oldHandler);
    }

private:
    sighandler_t _oldHandler;
    rlimit _old;
};

}  // namespace ZOV_SPACE

#endif  // TESTS_SUPPORT_FILESIZELIMIT_H
