#pragma once

#include "FakeRegistry.h"

#include <CapturedLog.h>
#include <Data/MicroServiceInfo.h>

#include <future>
#include <sstream>

namespace Kesa::Test
{

/// A script that gives the same answer to every request.
inline FakeRegistry::Script always(const FakeRegistry::Answer& answer)
{
    return [answer](const std::string&) { return answer; };
}

inline FakeRegistry::Answer created(const std::string& location)
{
    return FakeRegistry::answer("201 Created", "welcome", "Location: " + location + "\r\n");
}

/// The bytes of the registration of entryOf(name).
inline std::string putOf(const std::string& name)
{
    const std::string json = R"({"host":"127.0.0.1","name":")" + name + R"(","port":8080,"uri":"/)" + name + "\"}\n";
    std::ostringstream size;
    size << std::uppercase << std::hex << json.size();
    return "PUT /" + name + " HTTP/1.1\r\nTransfer-Encoding: chunked\r\nHost: 127.0.0.1:8910\r\n\r\n" + size.str() +
           "\r\n" + json + "\r\n0\r\n\r\n";
}

inline std::string deleteOf(const std::string& id)
{
    return "DELETE /" + id + " HTTP/1.1\r\nContent-Length: 0\r\nHost: 127.0.0.1:8910\r\n\r\n";
}

inline std::string getOf(const std::string& path)
{
    return "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1:8910\r\n\r\n";
}

inline std::vector<std::string> namesOf(const std::vector<MicroServiceInfo>& entries)
{
    std::vector<std::string> names;
    for (const MicroServiceInfo& entry: entries)
        names.push_back(entry.getName());
    return names;
}

inline std::vector<std::string> errorsOf(const CapturedLog& log)
{
    std::vector<std::string> errors;
    for (const CapturedLog::Entry& entry: log.entries())
        if (entry.priority == Poco::Message::PRIO_ERROR)
            errors.push_back(entry.text);
    return errors;
}

/// A registry that answers the one request it gets and keeps every byte of that connection, to its end.
class OneConnection
{
public:
    /// `end`: how the request ends.
    OneConnection(const std::string& end, const FakeRegistry::Answer& answer)
    {
        ClosedRegistryPort::bindRegistryPort(m_socket);
        m_socket.listen(1);
        m_bytes = std::async(std::launch::async, [this, end, answer] { return serve(end, answer.bytes); });
    }

    /// All that the client sent. Waits for the end of its connection; raises Poco::TimeoutException after 10 seconds.
    std::string bytes() { return m_bytes.get(); }

private:
    std::string serve(const std::string& end, const std::string& answer)
    {
        const Poco::Timespan limit(10, 0);
        if (!m_socket.poll(limit, Poco::Net::Socket::SELECT_READ))
            throw Poco::TimeoutException("nobody connected");
        Poco::Net::StreamSocket connection = m_socket.acceptConnection();
        connection.setReceiveTimeout(limit);
        std::string received;
        char buffer[4096];
        for (int count = 1; count > 0;)
        {
            count = connection.receiveBytes(buffer, sizeof buffer);
            received.append(buffer, static_cast<std::size_t>(count));
            const bool isWhole =
                received.size() >= end.size() && received.compare(received.size() - end.size(), end.size(), end) == 0;
            if (count > 0 && isWhole)
                connection.sendBytes(answer.data(), static_cast<int>(answer.size()));
        }
        return received;
    }

    Poco::Net::ServerSocket m_socket;
    std::future<std::string> m_bytes;
};

} // namespace Kesa::Test
