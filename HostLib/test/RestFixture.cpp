#include "RestFixture.h"

#include <Command/HttpRequest.h>

#include <Poco/String.h>

#include <sstream>

using Kesa::Command::HttpRequest;
using Kesa::Host::FrontDoor;
using Kesa::Service::SubscriptionTrigger;
using testing::HasSubstr;

bool RecordingTrigger::byRequest(const HttpRequest& request) const
{
    note(request, request.asJson().get());
    return true;
}

bool RecordingTrigger::byDeleteRequest(const HttpRequest& request, const Poco::JSON::Object* deletedObject) const
{
    note(request, deletedObject);
    return true;
}

void RecordingTrigger::note(const HttpRequest& request, const Poco::JSON::Object* payload) const
{
    std::ostringstream text;
    text << request.getType() << ' ' << request.getUri().toString() << ' ';
    payload->stringify(text);
    onReport();
    Kesa::Util::ScopedLock lock(m_mutex);
    m_reports.push_back(text.str());
}

std::vector<std::string> RecordingTrigger::reports() const
{
    Kesa::Util::ScopedLock lock(m_mutex);
    return m_reports;
}

RestFixture::RestFixture()
    : door([this](Poco::Net::HTTPServerRequest& request, Poco::Net::HTTPServerResponse& response)
           { handler.handle(request, response); },
           FrontDoor::Options())
{
    ApplicationServices::registerService<SubscriptionTrigger>(trigger);
    door.start();
}

RestFixture::~RestFixture()
{
    door.stop();
    ApplicationServices::unregisterService<SubscriptionTrigger>();
}

RestFixture::Answer RestFixture::send(const std::string& method, const std::string& url,
                                      const std::string& fields) const
{
    TestClient client(door.port());
    client.send(method + " " + url + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n" + fields + "\r\n");
    return client.receive(method != "HEAD");
}

RestFixture::Answer RestFixture::sendBody(const std::string& method, const std::string& url, const std::string& body,
                                          const std::string& fields) const
{
    TestClient client(door.port());
    client.send(method + " " + url +
                " HTTP/1.1\r\nHost: x\r\nConnection: close\r\nContent-Type: application/json\r\nContent-Length: " +
                std::to_string(body.size()) + "\r\n" + fields + "\r\n" + body);
    return client.receive();
}

std::string RestFixture::field(const Answer& answer, const std::string& name)
{
    const std::string begin = "\r\n" + name + ": ";
    const std::size_t found = answer.head.find(begin);
    if (found == std::string::npos)
        return std::string();
    const std::size_t value = found + begin.size();
    return answer.head.substr(value, answer.head.find("\r\n", value) - value);
}

std::vector<std::string> RestFixture::ids(const Answer& answer)
{
    std::vector<std::string> ids;
    const Poco::JSON::Array::Ptr list = parseJson(answer.body)->getArray("data");
    for (const auto& element: *list)
        ids.push_back(element.extract<Poco::JSON::Object::Ptr>()->getValue<std::string>("id"));
    return ids;
}

void RestFixture::expectError(const Answer& answer, int status, const std::string& message)
{
    EXPECT_EQ(answer.status, status) << answer.body;
    ASSERT_FALSE(answer.body.empty());
    const auto document = parseJson(answer.body);
    EXPECT_EQ(document->getValue<std::string>("type"), "error");
    EXPECT_EQ(document->getValue<std::string>("status"), "error");
    EXPECT_EQ(document->getValue<int>("code"), status);
    EXPECT_THAT(document->getValue<std::string>("message"), HasSubstr(message));
    EXPECT_FALSE(document->getValue<std::string>("message").empty());
    EXPECT_THAT(answer.head, HasSubstr("Content-Type: application/json\r\n"));
}
