#pragma once

#include "MessagePrinter.h"
#include "ServiceUrl.h"

#include <Poco/Clock.h>
#include <Poco/JSON/Object.h>

#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace Kesa::Client
{

class LineOutput;
class WebsocketClient;

/// Follows URLs and prints what changes, as it changes: one websocket for each host and port, one subscription for each
/// URL.
///
/// Threads: one; run() waits in poll().
class WatchCommand
{
public:
    struct Options
    {
        /// Prints each received message as it came, one a line, instead of the form for people.
        bool json = false;
        /// Ends after so many notifications; 0 for no such end.
        long count = 0;
        /// Ends after so many seconds; 0 for no such end.
        double timeout = 0;
        /// Milliseconds between the notifications of a periodic subscription; none for one on change.
        std::optional<long> interval;
        /// Least milliseconds between two notifications of a subscription on change; none for the service's default.
        std::optional<long> updateLimit;
        /// Also follows each element of a resource.
        bool autosubscribe = false;
    };

    /// The lines for a notification, without the time, in the form for people.
    typedef std::function<std::vector<std::string>(const Poco::JSON::Object& message)> Describe;

    /// `output` takes what was received, `errors` what went wrong; both are borrowed. A URL given twice is followed
    /// once. Without `describe` a MessagePrinter tells what is new.
    WatchCommand(const std::vector<ServiceUrl>& urls, const Options& options, LineOutput& output, std::ostream& errors,
                 Describe describe = nullptr);
    ~WatchCommand();

    /// Runs until the count or the time is reached, `stopDescriptor` becomes readable, nobody reads the output, nothing
    /// is left to follow or a connection ends. Returns the exit status: 0, or 1 if anything was refused, broke off, or
    /// nothing came within the time; `errors` then has a line that says so. Call it once.
    int run(int stopDescriptor);

private:
    enum class Following
    {
        ASKED,
        ACCEPTED,
        REFUSED
    };
    struct Subscription
    {
        ServiceUrl url;
        Following state = Following::ASKED;
    };
    struct Connection
    {
        std::string authority;
        std::vector<Subscription> subscriptions;
        std::unique_ptr<WebsocketClient> socket;
    };

    bool connect();
    std::string subscribeMessage(const std::string& event) const;
    bool isFinished() const;
    int remainingMs() const;
    void waitForWork(int stopDescriptor);
    void handleConnections();
    void handleConnection(Connection& connection);
    void handleMessage(Connection& connection, const std::string& text);
    void handleNotification(const Poco::JSON::Object& message, const std::string& event);
    void handleAcknowledgement(Connection& connection, const std::string& event);
    void handleError(Connection& connection, const Poco::JSON::Object& message, const std::string& event);
    void close();
    int result();
    void fail(const std::string& text);
    static Subscription* find(Connection& connection, const std::string& event);

    const Options m_options;
    const Describe m_describe; ///< may be empty
    LineOutput& m_output;
    std::ostream& m_errors;
    const Poco::Clock m_start;
    std::vector<Connection> m_connections;
    MessagePrinter m_printer;
    long m_received = 0;
    bool m_stopped = false; ///< told by the user, or a connection is gone
    bool m_failed = false;
};

} // namespace Kesa::Client
