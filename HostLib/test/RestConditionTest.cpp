#include "RestFixture.h"

#include <atomic>
#include <thread>

using testing::IsEmpty;

class RestConditionTest: public RestFixture
{
protected:
    RestConditionTest() { shop->put("orders", 1, R"({"count":0})"); }

    std::string tag() const { return field(get(urlOf(1)), "ETag"); }
    static std::string match(const std::string& tag) { return "If-Match: " + tag + "\r\n"; }
    static std::string noneMatch(const std::string& tag) { return "If-None-Match: " + tag + "\r\n"; }
};

TEST_F(RestConditionTest, ChangesAnElementOnlyInTheStateThatTheClientNames)
{
    const std::string old = tag();
    const auto changed = sendBody("POST", urlOf(1), R"({"count":1})", match(old));
    EXPECT_EQ(changed.status, 200);
    EXPECT_EQ(field(changed, "ETag"), tag());
    EXPECT_NE(tag(), old);
    expectError(sendBody("POST", urlOf(1), R"({"count":2})", match(old)), 412);
    expectError(send("DELETE", urlOf(1), match(old)), 412);
    expectError(send("DELETE", urlOf(1) + "?$fields=count", match(old)), 412);
    EXPECT_EQ(data(get(urlOf(1)))->getValue<int>("count"), 1);
    EXPECT_EQ(trigger->reports().size(), 1u);
    EXPECT_EQ(send("DELETE", urlOf(1) + "?$fields=count", match(tag())).status, 200);
    EXPECT_EQ(send("DELETE", urlOf(1), match(tag())).status, 200);
}

TEST_F(RestConditionTest, KnowsTheConditionsOnAnyState)
{
    EXPECT_EQ(sendBody("POST", urlOf(1), "{\"count\":1}", match("*")).status, 200);
    expectError(sendBody("POST", urlOf(1), "{\"count\":2}", noneMatch("*")), 412);
    expectError(sendBody("PUT", urlOf(2), "{}", match("*")), 412);
    EXPECT_EQ(sendBody("PUT", urlOf(2), "{}", noneMatch("*")).status, 201);
    expectError(sendBody("PUT", urlOf(2), "{}", noneMatch("*")), 412);
    expectError(sendBody("PUT", urlOf(2), "{}", match("*")), 409);
    expectError(sendBody("POST", "/shop/orders", "{}", match("\"a\"")), 412);
    expectError(sendBody("POST", "/shop/orders", "{}", noneMatch("*")), 412);
    EXPECT_EQ(ids(get("/shop/orders")).size(), 2u);
}

TEST_F(RestConditionTest, AnElementThatIsNotThereIsNotFoundWhateverTheCondition)
{
    expectError(sendBody("POST", urlOf(9), "{}", match("\"a\"")), 404);
    expectError(send("DELETE", urlOf(9), match("*")), 404);
    EXPECT_THAT(trigger->reports(), IsEmpty());
}

TEST_F(RestConditionTest, NoUpdateIsLostWhenWritersReadChangeAndWriteUnderACondition)
{
    constexpr int WRITERS = 8;
    constexpr int UPDATES = 25;
    std::vector<std::thread> writers;
    for (int i = 0; i < WRITERS; ++i)
        writers.emplace_back(
            [this]
            {
                for (int done = 0; done < UPDATES;)
                {
                    const Answer now = get(urlOf(1));
                    const int next = data(now)->getValue<int>("count") + 1;
                    const int status = sendBody("POST", urlOf(1), R"({"count":)" + std::to_string(next) + "}",
                                                match(field(now, "ETag")))
                                           .status;
                    ASSERT_TRUE(status == 200 || status == 412) << status;
                    done += status == 200 ? 1 : 0;
                }
            });
    for (std::thread& writer: writers)
        writer.join();
    EXPECT_EQ(data(get(urlOf(1)))->getValue<int>("count"), WRITERS * UPDATES);
}

TEST_F(RestConditionTest, OneOfManyCreatesTheElement)
{
    std::atomic<int> created{0};
    std::atomic<int> refused{0};
    std::vector<std::thread> writers;
    for (int i = 0; i < 8; ++i)
        writers.emplace_back(
            [&, i]
            {
                const int status = sendBody("PUT", urlOf(2), "{\"by\":" + std::to_string(i) + "}").status;
                created += status == 201 ? 1 : 0;
                refused += status == 409 ? 1 : 0;
            });
    for (std::thread& writer: writers)
        writer.join();
    EXPECT_EQ(created, 1);
    EXPECT_EQ(refused, 7);
}
