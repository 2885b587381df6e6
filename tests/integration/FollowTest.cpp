// Clients that write over HTTP, and clients that follow what they write, with all sorts of queries.

#include "Board.h"

#include <CapturedLog.h>
#include <WebsocketPeer.h>

#include <Poco/Random.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

using Kesa::Test::Board;
using Kesa::Test::parsed;
using Kesa::Test::RestClient;
using Kesa::Test::WebsocketPeer;
using Poco::JSON::Array;
using Poco::JSON::Object;

namespace
{

constexpr int WRITERS = 50;
constexpr int FOLLOWERS = 50;
constexpr int CHANGES = 10;  ///< of each writer
constexpr int COUNTERS = 5;  ///< elements that only count upwards
constexpr int CHANGING = 15; ///< elements that come, change and go

std::string urlOf(int number)
{
    const std::string digits = std::to_string(number);
    return "/board/notes/00000000-0000-4000-8000-" + std::string(12 - digits.size(), '0') + digits;
}

/// A client that follows one URL, and remembers what it saw last.
///
/// Threads: a thread of its own receives; the rest from any thread.
class Follower
{
public:
    Follower(const Board& board, const std::string& event, int updateLimit): url(event), m_peer(board.host.port())
    {
        m_peer.sendText(R"({"type":"subscribe","event":")" + event + R"(","updateLimit":)" +
                        std::to_string(updateLimit) + "}");
        EXPECT_EQ(parsed(m_peer.receiveText())->getValue<std::string>("status"), "ok") << event;
        m_peer.socket().setReceiveTimeout(Poco::Timespan(600, 0)); // nothing may happen to its element for long
        m_thread = std::thread([this] { receive(); });
    }
    ~Follower() { m_thread.join(); }
    Follower(const Follower&) = delete;
    Follower& operator=(const Follower&) = delete;

    /// What it saw last, in the form of seenBy().
    std::string seen() const
    {
        std::lock_guard lock(m_mutex);
        return m_seen;
    }
    bool sawOlderStates() const { return m_sawOlderStates; }

    /// An answer or a notification in the form in which two are compared: an element in full, a list as its sequence of
    /// ids, what is not there as "gone".
    static std::string seenBy(const Object& document)
    {
        if (document.optValue<std::string>("status", "") == "error")
            return "gone";
        std::string text;
        if (const Array::Ptr list = document.getArray("data"))
            for (std::size_t i = 0; i < list->size(); ++i)
                text += list->getObject(static_cast<unsigned>(i))->getValue<std::string>("id") + " ";
        else
            text = Poco::Dynamic::Var(document.getObject("data")).toString();
        return text;
    }

    const std::string url;

private:
    static constexpr int TEXT = 0x1;
    static constexpr int PING = 0x9;
    static constexpr int PONG = 0xA;

    void receive()
    {
        try
        {
            for (;;)
            {
                const WebsocketPeer::Frame frame = m_peer.receiveFrame();
                if (frame.opcode == PING)
                    m_peer.send(WebsocketPeer::frame(PONG, frame.payload));
                else if (frame.opcode == TEXT)
                    take(*parsed(frame.payload));
                else
                    break;
            }
            m_peer.socket().close(); // the service stops, and waits for its clients to go
        }
        catch (const std::exception& e)
        {
            ADD_FAILURE() << url << ": " << e.what();
        }
    }

    void take(const Object& message)
    {
        if (const Array::Ptr list = message.getArray("data"))
            for (std::size_t i = 0; i < list->size(); ++i)
                checkCount(*list->getObject(static_cast<unsigned>(i)));
        else if (const Object::Ptr element = message.getObject("data"))
            checkCount(*element);
        std::lock_guard lock(m_mutex);
        m_seen = seenBy(message);
    }

    /// Whoever counts, counts upwards.
    void checkCount(const Object& element)
    {
        if (!element.has("count"))
            return;
        int& last = m_counts[element.getValue<std::string>("id")];
        const int count = element.getValue<int>("count");
        m_sawOlderStates = m_sawOlderStates || count < last;
        last = count;
    }

    WebsocketPeer m_peer;
    std::map<std::string, int> m_counts; ///< by id; of the receiving thread alone
    std::atomic<bool> m_sawOlderStates{false};
    mutable std::mutex m_mutex;
    std::string m_seen; ///< guarded by m_mutex
    std::thread m_thread;
};

/// A client that changes what the followers see.
class Writer
{
public:
    Writer(const Board& board, unsigned seed): m_client(board) { m_random.seed(seed); }

    void work()
    {
        for (int i = 0; i < CHANGES; ++i)
            m_random.next(2) == 0 ? count(static_cast<int>(m_random.next(COUNTERS)))
                                  : change(COUNTERS + static_cast<int>(m_random.next(CHANGING)));
    }

private:
    /// Reads, adds one and writes, until nobody came in between.
    void count(int number)
    {
        for (int status = 412; status == 412;)
        {
            const RestClient::Answer now = m_client.get(urlOf(number));
            const int next = now.object()->getValue<int>("count") + 1;
            status = m_client.send("POST", urlOf(number), "{\"count\":" + std::to_string(next) + "}", now.etag).status;
            ASSERT_TRUE(status == 200 || status == 412) << status;
        }
    }

    void change(int number)
    {
        const std::string colors[] = {"red", "green", "blue"};
        const std::string members = R"({"color":")" + colors[m_random.next(3)] + R"("})";
        const std::string more = R"({"rank":)" + std::to_string(m_random.next(100)) + "}";
        switch (m_random.next(6))
        {
        case 0:
            m_client.send("PUT", urlOf(number), R"({"name":"note","color":"red","rank":5})");
            break;
        case 1:
            m_client.send("DELETE", urlOf(number));
            break;
        case 2:
            m_client.send("DELETE", urlOf(number) + "?$fields=rank");
            break;
        case 3:
            m_client.send("POST", urlOf(number), members);
            break;
        default:
            m_client.send("POST", urlOf(number), more);
        }
    }

    RestClient m_client;
    Poco::Random m_random;
};

/// What the followers follow, each with another query.
std::vector<std::string> followedUrls()
{
    std::vector<std::string> urls;
    for (int i = 0; i < COUNTERS; ++i)
        urls.push_back(urlOf(i));
    for (int i = COUNTERS; i < COUNTERS + 10; ++i)
        urls.push_back(urlOf(i) + (i % 2 == 0 ? "" : "?$fields=rank,color"));
    const std::string searches[] = {"", "color=red", "color=*e*", "$q=green", "$q=5", "rank=1*", "color=red&rank=*2*"};
    const std::string shapes[] = {
        "",         "$sortby=rank",           "$sortby=-color,rank",        "$fields=name",
        "$limit=5", "$sortby=-rank&$limit=3", "$fields=color&$sortby=rank", "$offset=4&$limit=4"};
    for (const std::string& search: searches)
        for (const std::string& shape: shapes)
            urls.push_back("/board/notes?" + search + (search.empty() || shape.empty() ? "" : "&") + shape);
    urls.resize(FOLLOWERS - 1);
    urls.push_back("/board/notes?$fields=name&$q=blue&$sortby=-rank");
    return urls;
}

/// Waits until the follower sees what a GET gives; what it sees, and what it should, if it never does.
std::string difference(const Follower& follower, RestClient& client)
{
    const std::string wanted = Follower::seenBy(*client.get(follower.url).document);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (follower.seen() != wanted)
    {
        if (std::chrono::steady_clock::now() > end)
            return "sees " + follower.seen() + "\ninstead of " + wanted;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return std::string();
}

} // namespace

TEST(FollowTest, EveryFollowerSeesAtLastWhatAGetGivesWhileManyClientsWrite)
{
    const Kesa::Test::CapturedLog quiet{Poco::Message::PRIO_ERROR};
    std::vector<std::unique_ptr<Follower>> followers; // outlives the board, whose stop ends their threads
    Board board;
    RestClient client(board);
    for (int i = 0; i < COUNTERS; ++i)
        ASSERT_EQ(client.send("PUT", urlOf(i), R"({"name":"counter","count":1})").status, 201);
    for (int i = COUNTERS; i < COUNTERS + CHANGING; ++i)
        ASSERT_EQ(client.send("PUT", urlOf(i), R"({"name":"note","color":"red","rank":5})").status, 201);
    for (const std::string& url: followedUrls())
        followers.push_back(std::make_unique<Follower>(board, url, static_cast<int>(followers.size() % 3) * 20));

    std::vector<std::thread> writers;
    for (int i = 0; i < WRITERS; ++i)
        writers.emplace_back([&board, i] { Writer(board, static_cast<unsigned>(i) + 1).work(); });
    for (std::thread& writer: writers)
        writer.join();

    for (const auto& follower: followers)
    {
        EXPECT_EQ(difference(*follower, client), "") << follower->url;
        EXPECT_FALSE(follower->sawOlderStates()) << follower->url;
    }
    EXPECT_EQ(quiet.count(Poco::Message::PRIO_ERROR), 0u);
    board.host.stop();
}

TEST(FollowTest, AnElementThatComesBackIsSeenByThoseWhoFollowedItBefore)
{
    const Kesa::Test::CapturedLog quiet{Poco::Message::PRIO_ERROR};
    std::vector<std::unique_ptr<Follower>> followers;
    Board board;
    RestClient client(board);
    client.send("PUT", urlOf(1), R"({"rank":1})");
    for (const char* query: {"", "?$fields=rank", "?$fields=color", "?color=red", "?$q=red"})
        followers.push_back(std::make_unique<Follower>(board, urlOf(1) + query, 0));
    for (int i = 2; i < 10; ++i)
    {
        EXPECT_EQ(client.send("DELETE", urlOf(1)).status, 200);
        for (const auto& follower: followers)
            EXPECT_EQ(difference(*follower, client), "") << follower->url << " is gone";
        EXPECT_EQ(client.send("PUT", urlOf(1), "{\"rank\":" + std::to_string(i) + "}").status, 201);
        for (const auto& follower: followers)
            EXPECT_EQ(difference(*follower, client), "") << follower->url << " is back";
    }
    board.host.stop();
}

TEST(FollowTest, AMemberThatBecomesAnotherKindOfValueHidesTheChangeFromNobodyElse)
{
    const Kesa::Test::CapturedLog quiet{Poco::Message::PRIO_ERROR};
    std::unique_ptr<Follower> whole;
    std::vector<std::unique_ptr<Follower>> others;
    Board board;
    RestClient client(board);
    client.send("PUT", urlOf(1), R"({"kind":[1],"rank":1,"text":"a"})");
    client.send("PUT", urlOf(2), R"({"rank":2,"text":"b"})");
    const std::string element = urlOf(1);
    const std::vector<std::string> early = {element + "?$fields=rank", element + "?$fields=text,rank"};
    const std::vector<std::string> late = {element + "?$fields=rank,text",
                                           element + "?$fields=rank,uri",
                                           "/board/notes?$sortby=-rank",
                                           "/board/notes?rank=3",
                                           "/board/notes?$sortby=rank&$fields=text",
                                           "/board/notes?$q=c"};
    for (const std::string& url: early)
        others.push_back(std::make_unique<Follower>(board, url, 0));
    whole = std::make_unique<Follower>(board, element, 0);
    for (const std::string& url: late)
        others.push_back(std::make_unique<Follower>(board, url, 0));
    const std::string before = whole->seen();
    EXPECT_EQ(client.send("POST", element, R"({"kind":"one","rank":3,"text":"c"})").status, 200);
    for (const auto& follower: others)
        EXPECT_EQ(difference(*follower, client), "") << follower->url;
    EXPECT_EQ(whole->seen(), before) << "an array cannot be compared with a text";
    EXPECT_EQ(client.send("POST", element, R"({"kind":[2],"rank":4})").status, 200);
    EXPECT_EQ(difference(*whole, client), "") << "but with another array";
    for (const auto& follower: others)
        EXPECT_EQ(difference(*follower, client), "") << follower->url;
    board.host.stop();
}

TEST(FollowTest, PagesOfAListThatChangesMeanwhileComeToAnEnd)
{
    const Kesa::Test::CapturedLog quiet{Poco::Message::PRIO_ERROR};
    Board board;
    RestClient client(board);
    for (int i = 0; i < 40; ++i)
        client.send("PUT", urlOf(i), "{\"rank\":" + std::to_string(i) + "}");
    std::atomic<bool> stops{false};
    std::thread writer(
        [&]
        {
            RestClient other(board);
            for (int i = 0; !stops; i = (i + 7) % 60)
                other.send(i % 2 == 0 ? "DELETE" : "PUT", urlOf(i), i % 2 == 0 ? "" : "{}");
        });
    for (const std::string first: {"/board/notes?$limit=3", "/board/notes?$limit=3&$sortby=-rank&$fields=rank"})
        for (int round = 0; round < 5; ++round)
        {
            int pages = 0;
            for (std::string url = first; !url.empty() && pages < 1000; ++pages)
            {
                const RestClient::Answer page = client.get(url);
                ASSERT_EQ(page.status, 200) << url;
                EXPECT_LE(page.list()->size(), 3u);
                url = page.document->getObject("paging")->optValue<std::string>("next", "");
            }
            EXPECT_LT(pages, 1000);
        }
    stops = true;
    writer.join();
    for (const std::string direction: {"next", "previous"})
    {
        const int total = client.get("/board/notes?$limit=3").document->getObject("paging")->getValue<int>("total");
        const int last = (total - 1) / 3 * 3;
        std::string url = "/board/notes?$limit=3&$offset=" + std::to_string(direction == "next" ? 0 : last);
        int seen = 0;
        while (!url.empty())
        {
            const RestClient::Answer page = client.get(url);
            seen += static_cast<int>(page.list()->size());
            url = page.document->getObject("paging")->optValue<std::string>(direction, "");
        }
        EXPECT_EQ(seen, total) << direction;
    }
}
