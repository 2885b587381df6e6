#include "WatchCommand.h"

#include "LineOutput.h"
#include "WebsocketClient.h"

#include <Poco/Exception.h>
#include <Poco/JSON/Parser.h>

#include <algorithm>
#include <cmath>
#include <poll.h>
#include <sstream>

namespace Kesa::Client
{
namespace
{

/// How long the closing handshake may take at the end, in milliseconds: the user waits for it.
constexpr int CLOSE_TIMEOUT = 1000;

/// A text member, or empty where it is missing or of another kind.
std::string textOf(const Poco::JSON::Object& message, const std::string& key)
{
    const Poco::Dynamic::Var value = message.get(key);
    return value.isString() ? value.extract<std::string>() : std::string();
}

/// JSON has no line break inside a text, so one between the members can go.
std::string onOneLine(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
    return text;
}

Poco::JSON::Object::Ptr parse(const std::string& text)
{
    try
    {
        const Poco::Dynamic::Var value = Poco::JSON::Parser().parse(text);
        return value.type() == typeid(Poco::JSON::Object::Ptr) ? value.extract<Poco::JSON::Object::Ptr>()
                                                               : Poco::JSON::Object::Ptr();
    }
    catch (const Poco::Exception&)
    {
        return Poco::JSON::Object::Ptr();
    }
}

} // namespace

WatchCommand::WatchCommand(const std::vector<ServiceUrl>& urls, const Options& options, LineOutput& output,
                           std::ostream& errors, Describe describe)
    : m_options(options), m_describe(std::move(describe)), m_output(output), m_errors(errors)
{
    for (const ServiceUrl& url: urls)
    {
        auto connection = std::find_if(m_connections.begin(), m_connections.end(),
                                       [&](const Connection& c) { return c.authority == url.authority(); });
        if (connection == m_connections.end())
        {
            m_connections.push_back({url.authority(), {}, nullptr});
            connection = std::prev(m_connections.end());
        }
        if (!find(*connection, url.event()))
            connection->subscriptions.push_back({url});
    }
}

WatchCommand::~WatchCommand() = default;

int WatchCommand::run(int stopDescriptor)
{
    if (!connect())
        return 1;
    handleConnections(); // the first messages may have come with the answers to the upgrades
    while (!isFinished())
    {
        waitForWork(stopDescriptor);
        handleConnections();
    }
    close();
    return result();
}

bool WatchCommand::connect()
{
    for (Connection& connection: m_connections)
    {
        try
        {
            connection.socket = std::make_unique<WebsocketClient>(connection.subscriptions.front().url);
        }
        catch (const Poco::Exception& error)
        {
            fail("cannot connect to " + connection.authority + ": " + error.displayText());
            return false;
        }
        for (const Subscription& subscription: connection.subscriptions)
            connection.socket->send(subscribeMessage(subscription.url.event()));
    }
    return true;
}

std::string WatchCommand::subscribeMessage(const std::string& event) const
{
    Poco::JSON::Object message;
    message.set("type", "subscribe");
    message.set("event", event);
    if (m_options.interval)
        message.set("interval", *m_options.interval);
    if (m_options.updateLimit)
        message.set("updateLimit", *m_options.updateLimit);
    if (m_options.autosubscribe)
        message.set("autosubscribe", true);
    std::ostringstream text;
    message.stringify(text);
    return text.str();
}

bool WatchCommand::isFinished() const
{
    const auto isFollowed = [](const Subscription& s) { return s.state != Following::REFUSED; };
    const bool nothingLeft = std::none_of(
        m_connections.begin(), m_connections.end(),
        [&](const Connection& c) { return std::any_of(c.subscriptions.begin(), c.subscriptions.end(), isFollowed); });
    const bool counted = m_options.count > 0 && m_received >= m_options.count;
    return m_stopped || nothingLeft || counted || !m_output.isOpen() || remainingMs() == 0;
}

/// Until the time is over; -1, which is poll's "for ever", without such an end.
int WatchCommand::remainingMs() const
{
    if (m_options.timeout <= 0)
        return -1;
    const double remaining = std::ceil(m_options.timeout * 1000 - static_cast<double>(m_start.elapsed()) / 1000);
    return static_cast<int>(std::clamp(remaining, 0.0, 1e9));
}

void WatchCommand::waitForWork(int stopDescriptor)
{
    std::vector<pollfd> ready{{stopDescriptor, POLLIN, 0}, {m_output.descriptor(), 0, 0}};
    for (const Connection& connection: m_connections)
        ready.push_back({connection.socket->descriptor(),
                         static_cast<short>(connection.socket->wantsWrite() ? POLLIN | POLLOUT : POLLIN), 0});
    if (::poll(ready.data(), ready.size(), remainingMs()) <= 0)
        return;
    if (ready[0].revents != 0)
        m_stopped = true;
    if (ready[1].revents & POLLERR)
        m_output.setClosed();
}

void WatchCommand::handleConnections()
{
    for (Connection& connection: m_connections)
        if (!isFinished())
            handleConnection(connection);
}

void WatchCommand::handleConnection(Connection& connection)
{
    connection.socket->process();
    while (!isFinished())
    {
        const std::optional<std::string> message = connection.socket->takeMessage();
        if (!message)
            break;
        handleMessage(connection, *message);
    }
    if (!connection.socket->isOpen() && !isFinished())
    {
        fail(connection.authority + ": " + connection.socket->endReason());
        m_stopped = true;
    }
}

void WatchCommand::handleMessage(Connection& connection, const std::string& text)
{
    if (m_options.json)
        m_output.write(onOneLine(text));
    const Poco::JSON::Object::Ptr message = parse(text);
    if (!message)
    {
        fail(connection.authority + ": received a message that is no JSON object");
        m_stopped = true;
        return;
    }
    const std::string type = textOf(*message, "type");
    const std::string event = textOf(*message, "event");
    if (type == "error")
        handleError(connection, *message, event);
    else if (type == "data")
        handleNotification(*message, event);
    else if (type == "subscribe")
        handleAcknowledgement(connection, event);
}

void WatchCommand::handleNotification(const Poco::JSON::Object& message, const std::string& event)
{
    ++m_received;
    if (m_options.json)
        return;
    const std::vector<std::string> lines =
        m_describe ? m_describe(message) : std::vector{m_printer.notification(event, message.get("data"))};
    for (const std::string& line: lines)
        m_output.write(MessagePrinter::timeOfDay() + "  " + line);
}

void WatchCommand::handleAcknowledgement(Connection& connection, const std::string& event)
{
    if (Subscription* subscription = find(connection, event))
        subscription->state = Following::ACCEPTED;
}

void WatchCommand::handleError(Connection& connection, const Poco::JSON::Object& message, const std::string& event)
{
    Subscription* subscription = find(connection, event);
    // An error after the acceptance tells of the data, an element that went for one; what is followed stays followed.
    if (subscription && subscription->state == Following::ASKED)
        subscription->state = Following::REFUSED;
    fail("http://" + connection.authority + event + ": " + MessagePrinter::compact(message.get("code")) + " " +
         textOf(message, "message"));
}

WatchCommand::Subscription* WatchCommand::find(Connection& connection, const std::string& event)
{
    const auto found = std::find_if(connection.subscriptions.begin(), connection.subscriptions.end(),
                                    [&](const Subscription& s) { return s.url.event() == event; });
    return found == connection.subscriptions.end() ? nullptr : &*found;
}

void WatchCommand::close()
{
    for (Connection& connection: m_connections)
        connection.socket->close();
    const Poco::Clock start;
    for (Connection& connection: m_connections)
        connection.socket->finish(std::max(0, CLOSE_TIMEOUT - static_cast<int>(start.elapsed() / 1000)));
}

int WatchCommand::result()
{
    if (m_received == 0 && !m_failed && remainingMs() == 0)
        fail("nothing was received within " + MessagePrinter::compact(m_options.timeout) + " seconds");
    return m_failed ? 1 : 0;
}

void WatchCommand::fail(const std::string& text)
{
    m_failed = true;
    m_errors << "kesa: " << onOneLine(text) << std::endl;
}

} // namespace Kesa::Client
