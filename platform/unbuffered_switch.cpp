#include <cstdlib>
#include <cstring>

#include "platform/file.h"

namespace QVN {

bool UnbufferedIoDisabled() {
    const char* value = std::getenv("QVN_NO_UNBUFFERED");
    return value && *value && std::strcmp(value, "0") != 0;
}

} // namespace QVN
