#pragma once

#include "LogStream.h"

#include <Poco/Exception.h>

#include <exception>

namespace Kesa::Host
{

/// Logs what was raised.
inline void logFailure(const char* what, const std::exception_ptr& failure)
{
    try
    {
        std::rethrow_exception(failure);
    }
    catch (const Poco::Exception& e)
    {
        KESA_LOG_ERROR(what << " failed: " << e.displayText());
    }
    catch (const std::exception& e)
    {
        KESA_LOG_ERROR(what << " failed: " << e.what());
    }
}

/// Runs one step of a thread's work, of which nothing may be raised since that would end the process: a lack of memory,
/// say. False, and logged as the failure of `what`, if the step raised. Any thread.
template <class Step>
bool runGuarded(const char* what, Step step) noexcept
{
    try
    {
        step();
        return true;
    }
    catch (...)
    {
        const std::exception_ptr failure = std::current_exception();
        try
        {
            logFailure(what, failure);
        }
        catch (...) // no memory for the log either
        {
        }
        return false;
    }
}

} // namespace Kesa::Host
