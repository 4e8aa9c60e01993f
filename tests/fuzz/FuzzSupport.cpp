#include "FuzzSupport.h"

#include "support/Log.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>

namespace fuzz {

void silenceLog() {
    static const int devNull = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    support::setLogOutput(devNull);
}

void require(bool holds, const char* what) {
    if (holds)
        return;
    std::fprintf(stderr, "fuzz: broken: %s\n", what);
    std::abort();
}

} // namespace fuzz
