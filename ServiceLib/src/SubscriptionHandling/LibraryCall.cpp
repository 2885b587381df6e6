#include "LibraryCall.h"

#include <LogStream.h>

#include <Poco/Exception.h>

#include <deque>

namespace Kesa::Service
{

namespace
{

/// A data source that reports a change at each load would go on for ever; so many changes put off in one call end it.
constexpr int MAX_DEFERRED_PER_CALL = 1000;

struct ThreadState
{
    int depth = 0;
    bool flushing = false;
    std::deque<std::function<void()>> deferred;
};

thread_local ThreadState t_state;

void runLogged(const std::function<void()>& action)
{
    try
    {
        action();
    }
    catch (const Poco::Exception& exc)
    {
        KESA_LOG_ERROR("A change that was reported from inside a callback failed: " << exc.displayText());
    }
    catch (const std::exception& exc)
    {
        KESA_LOG_ERROR("A change that was reported from inside a callback failed: " << exc.what());
    }
    catch (...)
    {
        KESA_LOG_ERROR("A change that was reported from inside a callback failed: unknown exception");
    }
}

void flush()
{
    t_state.flushing = true;
    for (int count = 0; !t_state.deferred.empty(); ++count)
    {
        if (count == MAX_DEFERRED_PER_CALL)
        {
            KESA_LOG_ERROR("Dropped " << t_state.deferred.size() << " changes: callbacks reported more than "
                                      << MAX_DEFERRED_PER_CALL
                                      << " changes while one was served; does a data source report its own loads?");
            t_state.deferred.clear();
            break;
        }
        const std::function<void()> action = std::move(t_state.deferred.front());
        t_state.deferred.pop_front();
        runLogged(action);
    }
    t_state.flushing = false;
}

} // namespace

LibraryCall::LibraryCall()
{
    ++t_state.depth;
}

LibraryCall::~LibraryCall()
{
    if (--t_state.depth == 0 && !t_state.flushing && !t_state.deferred.empty())
        flush();
}

bool LibraryCall::isInside()
{
    return t_state.depth > 0;
}

void LibraryCall::defer(std::function<void()> action)
{
    t_state.deferred.push_back(std::move(action));
}

} // namespace Kesa::Service
