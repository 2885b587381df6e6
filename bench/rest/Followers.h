#pragma once

#include <Poco/Types.h>

#include <string>
#include <sys/types.h>

namespace RestBench
{

/// Clients that follow one URL, each on a connection of its own and with the usual update limit. They live in a process
/// of their own, so that their work is not in the figures.
///
/// Threads: one; built before the first other thread of the program starts.
/// Errors:  std::runtime_error.
class Followers
{
public:
    Followers();
    ~Followers();
    Followers(const Followers&) = delete;
    Followers& operator=(const Followers&) = delete;

    /// Returns when so many more of them have subscribed.
    void add(Poco::UInt16 port, const std::string& url, unsigned count);

private:
    struct Order;

    [[noreturn]] void live();
    static void open(int poller, const Order& order);

    int m_orders[2];
    int m_answers[2];
    pid_t m_process;
};

} // namespace RestBench
