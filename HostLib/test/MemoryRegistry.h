#pragma once

#include <FakeRegistry.h>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/JSON/Parser.h>
#include <Poco/UUIDGenerator.h>

#include <algorithm>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

/// A registry at the fixed address that keeps its entries in memory, and misbehaves where the test wants it.
class MemoryRegistry
{
public:
    typedef Kesa::Test::FakeRegistry::Answer Answer;
    /// Answers instead of the registry, or does not.
    typedef std::function<std::optional<Answer>(const std::string& request)> Override;

    explicit MemoryRegistry(Override override = nullptr)
        : m_override(std::move(override)), m_fake([this](const std::string& request) { return answer(request); })
    {
    }

    /// Puts an entry in, and gives its id.
    std::string add(const std::string& name, const std::string& host, int port)
    {
        Poco::JSON::Object::Ptr entry = new Poco::JSON::Object;
        entry->set("name", name).set("uri", "/" + name).set("host", host).set("port", port);
        std::lock_guard lock(m_mutex);
        return keep(entry);
    }
    void remove(const std::string& id)
    {
        std::lock_guard lock(m_mutex);
        m_entries.erase(id);
    }
    void removeAll()
    {
        std::lock_guard lock(m_mutex);
        m_entries.clear();
    }
    /// The ids of the entries of this name.
    std::vector<std::string> ids(const std::string& name) const
    {
        std::lock_guard lock(m_mutex);
        std::vector<std::string> result;
        for (const auto& [id, entry]: m_entries)
            if (entry->getValue<std::string>("name") == name)
                result.push_back(id);
        return result;
    }
    Poco::JSON::Object::Ptr entry(const std::string& id) const
    {
        std::lock_guard lock(m_mutex);
        return m_entries.at(id);
    }
    /// The first line of each request without its version, oldest first.
    std::vector<std::string> requests() const
    {
        std::vector<std::string> lines;
        for (const std::string& request: m_fake.requests())
            lines.push_back(request.substr(0, request.find(" HTTP/1.")));
        return lines;
    }
    long count(const std::string& line) const
    {
        const std::vector<std::string> lines = requests();
        return std::count(lines.begin(), lines.end(), line);
    }

private:
    Answer answer(const std::string& request)
    {
        if (m_override)
            if (const std::optional<Answer> special = m_override(request))
                return *special;
        const std::string method = request.substr(0, request.find(' '));
        const std::size_t start = method.size() + 2; // behind the slash of the path
        const std::string path = request.substr(start, request.find(' ', start) - start);
        std::lock_guard lock(m_mutex);
        if (method == "PUT")
            return registration(request);
        if (method == "DELETE")
            return Kesa::Test::FakeRegistry::answer(m_entries.erase(path) ? "200 OK" : "404 Not Found");
        if (method == "HEAD")
            return Kesa::Test::FakeRegistry::head(path.empty() || m_entries.count(path) ? "200 OK" : "404 Not Found");
        return list(path);
    }

    Answer registration(const std::string& request)
    {
        const std::size_t first = request.find("\r\n", request.find("\r\n\r\n") + 4) + 2; // behind the chunk's length
        const std::string body = request.substr(first, request.find("\r\n", first) - first);
        const auto entry = Poco::JSON::Parser().parse(body).extract<Poco::JSON::Object::Ptr>();
        return Kesa::Test::FakeRegistry::answer("201 Created", "", "Location: /" + keep(entry) + "\r\n");
    }

    Answer list(const std::string& path) const
    {
        const std::string name = path.substr(std::min(path.size(), std::string("?name=").size()));
        Poco::JSON::Array::Ptr data = new Poco::JSON::Array;
        for (const auto& [id, entry]: m_entries)
            if (name.empty() || entry->getValue<std::string>("name") == name)
                data->add(entry);
        Poco::JSON::Object body;
        body.set("data", data);
        std::ostringstream text;
        body.stringify(text);
        return Kesa::Test::FakeRegistry::answer("200 OK", text.str());
    }

    std::string keep(Poco::JSON::Object::Ptr entry)
    {
        const std::string id = Poco::UUIDGenerator::defaultGenerator().createRandom().toString();
        entry->set("id", id);
        m_entries[id] = entry;
        return id;
    }

    const Override m_override;
    mutable std::mutex m_mutex; ///< guards m_entries
    std::map<std::string, Poco::JSON::Object::Ptr> m_entries;
    Kesa::Test::FakeRegistry m_fake; ///< last, so that its threads end first
};
