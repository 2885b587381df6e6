#include "LibraryCall.h"

#include <LogStream.h>

#include <Poco/Exception.h>

#include <deque>

namespace Kesa::Service
{

namespace
{

/// A data source that reports a change at each load would go on for ever; so many changes that come of one end it.
constexpr std::size_t MAX_CHANGES_OF_ONE = 1000;

struct ThreadState
{
    int depth = 0;
    bool flushing = false;
    std::deque<std::function<void()>> deferred; ///< oldest first
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

/// Runs what was put off, and what is put off by that, up to the bound.
void flush()
{
    t_state.flushing = true;
    std::size_t remaining = t_state.deferred.size() * (1 + MAX_CHANGES_OF_ONE);
    for (; !t_state.deferred.empty() && remaining > 0; --remaining)
    {
        const std::function<void()> action = std::move(t_state.deferred.front());
        t_state.deferred.pop_front();
        runLogged(action);
    }
    if (!t_state.deferred.empty())
        KESA_LOG_ERROR("Dropped " << t_state.deferred.size() << " changes: callbacks reported more than "
                                  << MAX_CHANGES_OF_ONE
                                  << " changes while one was served; does a data source report its own loads?");
    t_state.deferred.clear();
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
