#include "DebugUtils.h"

#include "LogStream.h"

#include <pthread.h>

void DebugUtils::setThreadName(const std::string& shortName, const std::string& longName)
{
    constexpr std::size_t maxLength = 15; // the kernel's TASK_COMM_LEN without the final zero
    pthread_setname_np(pthread_self(), shortName.substr(0, maxLength).c_str());
    KESA_LOG_TRACE("thread " << shortName << " runs " << longName);
}
