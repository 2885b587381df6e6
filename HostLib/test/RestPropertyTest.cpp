// For random documents and random queries, a GET agrees with a plain evaluation that shares no code with the library.

#include "RestFixture.h"

#include "InMemoryDataAccessPoint.h"

#include <Poco/URI.h>

#include <algorithm>
#include <map>
#include <optional>
#include <random>
#include <sstream>

namespace
{

typedef std::map<std::string, std::string> Document; ///< members as they stand in JSON: 5, 2.5, "text", true, null

const std::vector<std::string> MEMBERS = {"a", "b", "c", "name"};
const std::vector<std::string> VALUES = {"0",       "9",           "10",         "-3",           "2.5",   "-0.25",
                                         "\"\"",    "\"9\"",       "\"10\"",     "\"x\"",        "\"X\"", "\"xyx\"",
                                         "\"yx\"",  "true",        "false",      "null",         "\"*\"", "12345678901",
                                         "\"2.5\"", "\"a b&c=d\"", "[\"xy\",7]", "{\"k\":\"Y\"}"};

bool isText(const std::string& value)
{
    return value.front() == '"';
}
bool isContainer(const std::string& value)
{
    return value.front() == '[' || value.front() == '{';
}
bool isNumber(const std::string& value)
{
    return value.front() == '-' || (value.front() >= '0' && value.front() <= '9');
}
/// A scalar without its quotes.
std::string plain(const std::string& value)
{
    return isText(value) ? value.substr(1, value.size() - 2) : value;
}

/// Whether all of the text is like the pattern, in which "*" stands for anything.
bool isLike(const char* text, const char* pattern)
{
    if (*pattern == '\0')
        return *text == '\0';
    if (*pattern == '*')
        return isLike(text, pattern + 1) || (*text != '\0' && isLike(text + 1, pattern));
    return *text == *pattern && isLike(text + 1, pattern + 1);
}

std::string lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? c + 32 : c; });
    return text;
}

struct Query
{
    std::optional<std::string> text;
    std::vector<std::pair<std::string, std::string>> filters;
    std::vector<std::pair<std::string, bool>> order; ///< with true for falling
    std::optional<std::string> offset;
    std::optional<int> limit;
    std::vector<std::string> fields;

    std::string url() const
    {
        std::vector<std::string> parts;
        const auto add = [&parts](const std::string& key, const std::string& value)
        {
            std::string encoded;
            Poco::URI::encode(value, "&=+*#%$/?", encoded);
            parts.push_back(key + "=" + encoded);
        };
        if (text)
            add("$q", *text);
        for (const auto& [name, pattern]: filters)
            add(name, pattern);
        std::string keys;
        for (const auto& [name, isFalling]: order)
            keys += (keys.empty() ? "" : ",") + std::string(isFalling ? "-" : "") + name;
        if (!keys.empty())
            parts.push_back("$sortby=" + keys);
        if (offset)
            add("$offset", *offset);
        if (limit)
            add("$limit", std::to_string(*limit));
        std::string names;
        for (const std::string& name: fields)
            names += (names.empty() ? "" : ",") + name;
        if (!names.empty())
            parts.push_back("$fields=" + names);
        std::string url = "/box/things";
        for (const std::string& part: parts)
            url += (url.find('?') == std::string::npos ? "?" : "&") + part;
        return url;
    }
};

/// The plain evaluation.
class Reference
{
public:
    Reference(std::vector<Document> documents, const Query& query): m_page(std::move(documents)), m_query(query)
    {
        std::erase_if(m_page, [this](const Document& document) { return !matches(document); });
        std::stable_sort(m_page.begin(), m_page.end(),
                         [this](const Document& a, const Document& b) { return isBefore(a, b); });
        total = m_page.size();
        if (query.offset || query.limit)
            cut();
    }

    std::size_t total = 0;
    std::size_t first = 0;

    std::string text() const
    {
        std::string text;
        for (const Document& document: m_page)
        {
            for (const auto& [name, value]: document)
                if (isShown(name))
                    text += name + "=" + value + " ";
            text += "\n";
        }
        return text;
    }

private:
    bool matches(const Document& document) const
    {
        for (const auto& [name, pattern]: m_query.filters)
        {
            const auto found = document.find(name);
            if (found == document.end() || isContainer(found->second) ||
                !isLike(plain(found->second).c_str(), pattern.c_str()))
                return false;
        }
        return !m_query.text || std::any_of(document.begin(), document.end(),
                                            [this](const auto& member) { return holdsText(member.second); });
    }
    bool holdsText(const std::string& value) const
    {
        const std::string pattern = "*" + lower(*m_query.text) + "*";
        std::vector<std::string> scalars = {plain(value)};
        if (value == "[\"xy\",7]")
            scalars = {"xy", "7"};
        if (value == "{\"k\":\"Y\"}")
            scalars = {"Y"};
        return std::any_of(scalars.begin(), scalars.end(),
                           [&pattern](const std::string& scalar)
                           { return isLike(lower(scalar).c_str(), pattern.c_str()); });
    }

    static int rank(const Document& document, const std::string& name)
    {
        const auto found = document.find(name);
        if (found == document.end() || found->second == "null")
            return 3;
        return isNumber(found->second) ? 0 : isContainer(found->second) ? 2 : 1;
    }
    bool isBefore(const Document& a, const Document& b) const
    {
        for (const auto& [name, isFalling]: m_query.order)
            if (const int order = compare(a, b, name, isFalling))
                return order < 0;
        return false;
    }
    static int compare(const Document& a, const Document& b, const std::string& name, bool isFalling)
    {
        const int sign = isFalling ? -1 : 1;
        const int rankA = rank(a, name);
        const int rankB = rank(b, name);
        if (rankA == 3 || rankB == 3)
            return rankA - rankB;
        if (rankA != rankB)
            return sign * (rankA - rankB);
        if (rankA == 0)
        {
            const double difference = std::stod(a.at(name)) - std::stod(b.at(name));
            return difference < 0 ? -sign : difference > 0 ? sign : 0;
        }
        return rankA == 2 ? 0 : sign * plain(a.at(name)).compare(plain(b.at(name)));
    }

    void cut()
    {
        const bool isIndex = !m_query.offset || m_query.offset->find('-') == std::string::npos;
        if (isIndex)
            first = std::min<std::size_t>(std::stoul(m_query.offset.value_or("0")), total);
        else
            while (first < total && plain(m_page[first].at("id")) != *m_query.offset)
                ++first;
        const std::size_t last = std::min(first + static_cast<std::size_t>(m_query.limit.value_or(50)), total);
        m_page = std::vector<Document>(m_page.begin() + static_cast<std::ptrdiff_t>(first),
                                       m_page.begin() + static_cast<std::ptrdiff_t>(last));
    }
    bool isShown(const std::string& name) const
    {
        return m_query.fields.empty() || name == "id" || name == "uri" ||
               std::find(m_query.fields.begin(), m_query.fields.end(), name) != m_query.fields.end();
    }

    std::vector<Document> m_page;
    const Query& m_query;
};

/// A value as it stands in JSON.
std::string jsonOf(const Poco::Dynamic::Var& value)
{
    std::ostringstream out;
    Poco::JSON::Stringifier::stringify(value, out);
    return out.str();
}

} // namespace

class RestPropertyTest: public RestFixture
{
protected:
    RestPropertyTest()
    {
        m_store->addService("box");
        m_store->addResource("box", "things");
        ApplicationServices::unregisterService<Kesa::Service::SubscriptionTrigger>();
        Poco::SharedPtr<Kesa::Service::SubscriptionTrigger> overStore = new Kesa::Host::DataAccessTrigger(m_store);
        ApplicationServices::registerService<Kesa::Service::SubscriptionTrigger>(overStore);
    }

    template <class T>
    const T& pick(const std::vector<T>& values)
    {
        return values[m_random() % values.size()];
    }
    bool chance(unsigned percent) { return m_random() % 100 < percent; }

    void addDocument()
    {
        Document document;
        std::string text;
        for (const std::string& member: MEMBERS)
            if (chance(70))
                document[member] = pick(VALUES);
        for (const auto& [name, value]: document)
            text += (text.empty() ? "\"" : ",\"") + name + "\":" + value;
        const auto created = m_store->insertElement("box", "things", parseJson("{" + text + "}")).created;
        document["id"] = "\"" + created->getId().toString() + "\"";
        document["uri"] = "\"" + created->getUri().getPath() + "\"";
        m_documents.push_back(document);
    }

    Query randomQuery()
    {
        Query query;
        if (chance(25))
            query.text = pick<std::string>({"x", "Y", "x*x", "9", "1*5", "e", "zzz", "nul", "*"});
        for (int i = 0; i < 2 && chance(30); ++i)
            query.filters.emplace_back(pick(MEMBERS), pick<std::string>({"x", "X", "*x", "9", "2.5", "*", "", "true",
                                                                         "null", "1*", "a b&c=d"}));
        for (int i = 0; i < 3 && chance(50); ++i)
            query.order.emplace_back(chance(10) ? "missing" : pick(MEMBERS), chance(50));
        if (chance(30))
            query.offset = chance(50) ? std::to_string(m_random() % 40) : plain(pick(m_documents).at("id"));
        if (chance(40))
            query.limit = 1 + static_cast<int>(m_random() % 12);
        for (int i = 0; i < 3 && chance(30); ++i)
            query.fields.push_back(pick(MEMBERS));
        return query;
    }

    void compare(const Query& query, const Answer& answer)
    {
        ASSERT_EQ(answer.status, 200) << query.url() << answer.body;
        const auto document = parseJson(answer.body);
        const Reference reference(m_documents, query);
        std::string text;
        const Poco::JSON::Array::Ptr list = document->getArray("data");
        for (const auto& element: *list)
        {
            const auto object = element.extract<Poco::JSON::Object::Ptr>();
            for (const auto& [name, value]: *object)
                text += name + "=" + jsonOf(value) + " ";
            text += "\n";
        }
        EXPECT_EQ(text, reference.text()) << query.url();
        const bool isPaged = query.offset || query.limit;
        ASSERT_EQ(document->has("paging"), isPaged) << query.url();
        if (!isPaged)
            return;
        const auto paging = document->getObject("paging");
        const auto limit = static_cast<std::size_t>(query.limit.value_or(50));
        EXPECT_EQ(paging->getValue<std::size_t>("total"), reference.total) << query.url();
        EXPECT_EQ(paging->getValue<std::size_t>("totalPages"), (reference.total + limit - 1) / limit) << query.url();
        EXPECT_EQ(paging->has("previous"), reference.first > 0) << query.url();
        EXPECT_EQ(paging->has("next"), reference.first + limit < reference.total) << query.url();
    }

    std::mt19937 m_random{20}; // the same queries each time, so that a failure can be looked at
    Kesa::Host::InMemoryDataAccessPoint::Ptr m_store{new Kesa::Host::InMemoryDataAccessPoint};
    std::vector<Document> m_documents;
};

TEST_F(RestPropertyTest, AGetAgreesWithAPlainEvaluation)
{
    TestClient client(door.port());
    for (int round = 0; round < 20; ++round)
    {
        addDocument();
        addDocument();
        for (int i = 0; i < 50; ++i)
        {
            const Query query = randomQuery();
            client.get(query.url());
            compare(query, client.receive());
            if (HasFailure())
                return;
        }
    }
}
