#pragma once

#include "Export.h"

#include <string>

/// Helps for those who look at a running process.
class KESA_API DebugUtils
{
public:
    /// Names the calling thread. The operating system shows `shortName`, cut to 15 characters; `longName` goes to the
    /// log at level Trace.
    static void setThreadName(const std::string& shortName, const std::string& longName);
};
