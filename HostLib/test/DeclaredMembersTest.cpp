#include "DeclaredMembers.h"

#include <Command/RequestBase.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using Kesa::Command::RequestBase;
using Kesa::Host::DeclaredMembers;

namespace
{

const char* const SCHEMA = R"({"type":"object","properties":{"age":{"type":"integer"},"city":{}}})";

std::string unknown(DeclaredMembers& members, const std::string& schemaText, const std::string& query)
{
    return members.unknownMember(schemaText, RequestBase(Poco::URI("/shop/customers?" + query)));
}

} // namespace

TEST(DeclaredMembersTest, FindsTheNameThatIsNotDeclared)
{
    DeclaredMembers members;
    const struct
    {
        const char* query;
        const char* name;
    } rows[] = {{"$fields=age,size", "size"},
                {"$sortby=city,-size", "size"},
                {"size=1", "size"},
                {"$fields=Age", "Age"},
                {"$fields=age,city", ""},
                {"$sortby=-age", ""},
                {"city=a&age=1", ""},
                {"$fields=id,uri,name", ""},
                {"$q=size", ""},
                {"$expand=size", ""},
                {"", ""}};
    for (const auto& row: rows)
        EXPECT_EQ(unknown(members, SCHEMA, row.query), row.name) << row.query;
}

TEST(DeclaredMembersTest, TakesEveryNameWhereNothingIsDeclared)
{
    DeclaredMembers members;
    for (const char* schemaText: {"", "Customers of the shop.", "[]", "{}", R"({"properties":[]})", "{"})
        EXPECT_EQ(unknown(members, schemaText, "$fields=size&weight=1"), "") << schemaText;
    EXPECT_EQ(unknown(members, R"({"properties":{}})", "$fields=size"), "size");
}

TEST(DeclaredMembersTest, ServesManySpecificationsAndThreads)
{
    DeclaredMembers members;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back(
            [&]
            {
                for (std::size_t i = 0; i < 2 * DeclaredMembers::MAX_KEPT; ++i)
                {
                    const std::string name = "member" + std::to_string(i);
                    const std::string schema = R"({"properties":{")" + name + R"(":{}}})";
                    wrong += unknown(members, schema, "$fields=" + name).empty() ? 0 : 1;
                    wrong += unknown(members, schema, "$fields=other") == "other" ? 0 : 1;
                }
            });
    for (std::thread& thread: threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
}
