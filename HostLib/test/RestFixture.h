#pragma once

#include "DataAccessTrigger.h"
#include "FrontDoor.h"
#include "RestHandler.h"
#include "Shop.h"
#include "TestClient.h"

#include <ApplicationServices.h>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/JSON/Parser.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

inline Poco::JSON::Object::Ptr parseJson(const std::string& text)
{
    return Poco::JSON::Parser().parse(text).extract<Poco::JSON::Object::Ptr>();
}

/// A trigger that remembers what was reported to it.
class RecordingTrigger: public Kesa::Host::DataAccessTrigger
{
public:
    using DataAccessTrigger::DataAccessTrigger;

    bool byRequest(const Kesa::Command::HttpRequest& request) const override;
    bool byDeleteRequest(const Kesa::Command::HttpRequest& request,
                         const Poco::JSON::Object* deletedObject) const override;

    /// "PUT /shop/orders/1 {...}", in the order of the reports.
    std::vector<std::string> reports() const;

    std::function<void()> onReport = [] {};

private:
    void note(const Kesa::Command::HttpRequest& request, const Poco::JSON::Object* payload) const;

    mutable Kesa::Util::FastMutex m_mutex; ///< guards the reports
    mutable std::vector<std::string> m_reports KESA_GUARDED_BY(m_mutex);
};

/// A front door with the handler alone behind it, and in the locator the trigger of a shop.
class RestFixture: public testing::Test
{
protected:
    typedef TestClient::Answer Answer;

    RestFixture();
    ~RestFixture() override;

    /// One request on a connection of its own. `fields` end with CR LF each.
    Answer send(const std::string& method, const std::string& url, const std::string& fields = "") const;
    /// The same with a body of JSON.
    Answer sendBody(const std::string& method, const std::string& url, const std::string& body,
                    const std::string& fields = "") const;
    Answer get(const std::string& url, const std::string& fields = "") const { return send("GET", url, fields); }

    /// The value of a field of the answer's head, empty if there is none.
    static std::string field(const Answer& answer, const std::string& name);
    /// The ids of a list, in its order.
    static std::vector<std::string> ids(const Answer& answer);
    static Poco::JSON::Object::Ptr data(const Answer& answer) { return parseJson(answer.body)->getObject("data"); }
    static void expectError(const Answer& answer, int status, const std::string& message = "");
    static std::string urlOf(int number) { return "/shop/orders/" + Shop::id(number); }

    Shop::Ptr shop{new Shop};
    Poco::SharedPtr<RecordingTrigger> trigger{new RecordingTrigger(shop)};
    Kesa::Host::RestHandler handler;
    Kesa::Host::FrontDoor door;
};
