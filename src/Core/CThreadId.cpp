#include "Core/CThreadId.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace qel {

uint32_t currentThreadId()
{
    return static_cast<uint32_t>(::syscall(SYS_gettid));
}

} // namespace qel
