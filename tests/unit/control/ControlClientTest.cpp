// SPDX-License-Identifier: Apache-2.0

#include "control/ControlClient.h"
#include "support/DomPtr.h"

#include <gtest/gtest.h>

#include <array>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace TestSupport;
using std::chrono::seconds;

namespace
{

const std::string kGet = R"({"do":"get","key":"k"})"
                         "\n";
const std::string kNone = R"({"ok":true,"type":"nil"})"
                          "\n";

// The agent's end is a client; the test holds the other.
class ControlClient : public testing::Test
{
protected:
    ControlClient()
    {
        std::array<int, 2> pair{};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair.data()), 0);
        for (const int fd : pair)
            fcntl(fd, F_SETFL, O_NONBLOCK);
        m_peer = pair[0];
        m_client = std::make_unique<CControlClient>(pair[1], m_now);
    }

    ~ControlClient() override
    {
        if (m_peer >= 0)
            close(m_peer);
    }

    void Send(const std::string& bytes) const
    {
        ASSERT_EQ(send(m_peer, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }

    // Fills the socket, and says how many bytes it took.
    std::size_t SendWhatFits(const std::string& bytes) const
    {
        const ssize_t count =
            send(m_peer, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        return count < 0 ? 0 : static_cast<std::size_t>(count);
    }

    [[nodiscard]] std::string Received() const
    {
        std::string all;
        std::array<char, 65536> piece;
        for (;;)
        {
            const ssize_t count = recv(m_peer, piece.data(), piece.size(), 0);
            if (count <= 0)
                return all;
            all.append(piece.data(), static_cast<std::size_t>(count));
        }
    }

    bool Serve() { return m_client->Serve(m_service, m_now); }

    const DomPtr m_dom = NewDom();
    int m_woken = 0;
    const CControlService m_service{
        *m_dom, {"app", "1"}, [this] { ++m_woken; }};
    CControlClient::Time m_now = CControlClient::Time(seconds(1000));
    int m_peer = -1;
    std::unique_ptr<CControlClient> m_client;
};

TEST_F(ControlClient, AnswersLinesHoweverTheyArrive)
{
    const std::string three = kGet + "\n \t\r\n" + kGet + kGet;
    for (const char byte : three)
    {
        Send(std::string(1, byte));
        ASSERT_TRUE(Serve());
    }
    EXPECT_EQ(Received(), kNone + kNone + kNone);
    Send(three);
    ASSERT_TRUE(Serve());
    EXPECT_EQ(Received(), kNone + kNone + kNone);
}

TEST_F(ControlClient, GoesOnAfterAnError)
{
    Send("garbage\n" + kGet);
    ASSERT_TRUE(Serve());
    EXPECT_EQ(Received(),
              "{\"ok\":false,\"error\":\"the line is no JSON object\"}\n" +
                  kNone);
}

TEST_F(ControlClient, TakesALineOfTheGreatestLengthAndNoLongerOne)
{
    const std::string begin = R"({"do":"set","key":"k","value":")";
    const std::string end = "\"}";
    const std::string text(CControlClient::kMaxLine - begin.size() - end.size(),
                           'x');
    Send(begin + text + end + "\n");
    ASSERT_TRUE(Serve());
    ASSERT_TRUE(Serve()); // one turn reads a bounded number of bytes
    EXPECT_EQ(Received(), "{\"ok\":true}\n");
    EXPECT_EQ(m_dom->Get("k"), text);

    Send(begin + text + "y" + end + "\n" + kGet);
    bool open = true;
    for (int turn = 0; turn < 10 && open; ++turn)
        open = Serve();
    EXPECT_FALSE(open);
    EXPECT_EQ(Received(), "{\"ok\":false,\"error\":\"a line has more than "
                          "65536 bytes\"}\n");
    EXPECT_EQ(m_dom->Get("k"), text);
}

TEST_F(ControlClient, EndlessLineIsRefusedBeforeItsEnd)
{
    const std::string piece(16 * 1024, 'x');
    bool open = true;
    for (int i = 0; i < 10 && open; ++i)
    {
        (void)SendWhatFits(piece);
        open = Serve();
    }
    EXPECT_FALSE(open);
    EXPECT_NE(Received().find("a line has more than"), std::string::npos);
}

TEST_F(ControlClient, HalfALineAtTheEndIsNoRequest)
{
    Send(kGet + kGet.substr(0, 10));
    shutdown(m_peer, SHUT_WR);
    EXPECT_FALSE(Serve());
    EXPECT_EQ(Received(), kNone);
}

TEST_F(ControlClient, SilentClientIsClosedAfterAMinute)
{
    EXPECT_EQ(m_client->Deadline(), m_now + seconds(60));
    m_now += seconds(59);
    ASSERT_TRUE(Serve());
    Send(kGet);
    ASSERT_TRUE(Serve());
    m_now += seconds(59);
    ASSERT_TRUE(Serve());
    m_now += seconds(1);
    EXPECT_FALSE(Serve());
}

TEST_F(ControlClient, ClientThatWatchesMayBeSilent)
{
    Send("{\"do\":\"watch\",\"key\":\"k\"}\n");
    ASSERT_TRUE(Serve());
    EXPECT_EQ(Received(), kNone);
    EXPECT_EQ(m_client->Deadline(), CControlClient::Time::max());
    m_now += seconds(1000000);
    EXPECT_TRUE(Serve());
}

TEST_F(ControlClient, WatchShowsTheValueAndEachChange)
{
    m_dom->Set("k", 1LL);
    Send("{\"do\":\"watch\",\"key\":\"k\"}\n");
    ASSERT_TRUE(Serve());
    m_woken = 0;
    m_dom->Set("k", 2LL);
    m_dom->Set("k", 2LL);
    m_dom->Set("other", 5LL);
    m_dom->Remove("k");
    EXPECT_EQ(m_woken, 1) << "the rest comes with the first";
    ASSERT_TRUE(Serve());
    const std::string two = "{\"ok\":true,\"type\":\"number\",\"value\":2}\n";
    EXPECT_EQ(Received(), "{\"ok\":true,\"type\":\"number\",\"value\":1}\n" +
                              two + two + kNone);
}

TEST_F(ControlClient, WatchesOneKey)
{
    const std::string watch = "{\"do\":\"watch\",\"key\":\"k\"}\n";
    Send(watch + "{\"do\":\"watch\",\"key\":\"l\"}\n" + watch);
    ASSERT_TRUE(Serve());
    EXPECT_EQ(Received(), kNone +
                              "{\"ok\":false,\"error\":\"this connection "
                              "watches 'k' already\"}\n" +
                              kNone);
}

TEST_F(ControlClient, ChangesThatPileUpEndWithTheLast)
{
    Send("{\"do\":\"watch\",\"key\":\"k\"}\n");
    ASSERT_TRUE(Serve());
    for (long long i = 1; i <= 5000; ++i)
        m_dom->Set("k", i);
    ASSERT_TRUE(Serve());
    const std::string received = Received();
    EXPECT_EQ(std::count(received.begin(), received.end(), '\n'),
              1 + static_cast<long>(CKeyChanges::kMaxWaiting));
    const std::string last =
        "{\"ok\":true,\"type\":\"number\",\"value\":5000}\n";
    EXPECT_EQ(received.substr(received.size() - last.size()), last);
}

// A client that sends its requests first and reads afterwards gets its answers;
// until it reads, its requests wait in its own socket.
TEST_F(ControlClient, SendsNoMoreThanIsRead)
{
    m_dom->Set("k", std::string(1000, 'x'));
    std::string requests;
    for (int i = 0; i < 20000; ++i)
        requests += kGet;
    std::size_t sent = 0;
    for (int turn = 0; turn < 100; ++turn)
    {
        sent += SendWhatFits(requests.substr(sent));
        ASSERT_TRUE(Serve());
    }
    EXPECT_FALSE(m_client->WantsToRead());
    EXPECT_TRUE(m_client->WantsToWrite());
    EXPECT_LT(sent, requests.size());

    long answers = 0;
    for (int turn = 0; turn < 100000 && answers < 20000; ++turn)
    {
        const std::string received = Received();
        answers += std::count(received.begin(), received.end(), '\n');
        sent += SendWhatFits(requests.substr(sent));
        ASSERT_TRUE(Serve());
    }
    EXPECT_EQ(answers, 20000);
}

TEST_F(ControlClient, ClientThatDoesNotReadIsDroppedAfterHalfAMinute)
{
    m_dom->Set("k", std::string(60000, 'x'));
    for (int i = 0; i < 20; ++i)
        Send(kGet);
    for (int turn = 0; turn < 30; ++turn)
        ASSERT_TRUE(Serve());
    EXPECT_EQ(m_client->Deadline(), m_now + seconds(30));
    m_now += seconds(29);
    ASSERT_TRUE(Serve());
    m_now += seconds(1);
    EXPECT_FALSE(Serve());
}

TEST_F(ControlClient, ReadingPutsTheDropOff)
{
    m_dom->Set("k", std::string(60000, 'x'));
    for (int i = 0; i < 20; ++i)
        Send(kGet);
    for (int turn = 0; turn < 30; ++turn)
        ASSERT_TRUE(Serve());
    m_now += seconds(29);
    std::array<char, 50000> piece;
    ASSERT_GT(recv(m_peer, piece.data(), piece.size(), 0), 0);
    ASSERT_TRUE(Serve());
    m_now += seconds(29);
    EXPECT_TRUE(Serve());
}

TEST_F(ControlClient, WatcherThatDoesNotReadIsDroppedWithItsBacklog)
{
    Send("{\"do\":\"watch\",\"key\":\"k\"}\n");
    ASSERT_TRUE(Serve());
    bool open = true;
    int changes = 0;
    for (; changes < 100 && open; ++changes)
    {
        m_dom->Set("k", std::string(50000, 'x'));
        open = Serve();
    }
    EXPECT_FALSE(open);
    EXPECT_GT(changes * 50000U, CControlClient::kMaxWaiting);
}

TEST_F(ControlClient, PeerThatIsGoneEndsIt)
{
    Send(kGet);
    close(m_peer);
    m_peer = -1;
    EXPECT_FALSE(Serve());
}

} // namespace
