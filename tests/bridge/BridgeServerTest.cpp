#include "bridge/BridgeServer.h"

#include "support/SocketClient.h"
#include "support/TestSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QThread>
#include <atomic>
#include <future>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>

using namespace mirrowisp;
using namespace Qt::StringLiterals;
using test::SocketClient;

namespace {

QByteArray requestLine(const QString& id, bool expectsReply = true, const QByteArray& payload = "{\"a\":1}") {
    BridgeRequest request;
    request.id = id;
    request.agent = AgentKind::claude;
    request.payload = payload;
    request.expectsReply = expectsReply;
    return BridgeProtocol::encodeRequest(request) + '\n';
}

int openDescriptorCount() {
    return static_cast<int>(QDir(u"/proc/self/fd"_s).entryList(QDir::Files | QDir::System).size());
}

class BridgeServerTest : public testing::Test {
protected:
    void SetUp() override { restart({}); }

    void restart(BridgeTimeouts timeouts) {
        received.clear();
        server.reset();
        server = std::make_unique<BridgeServer>(
            [this](const std::shared_ptr<BridgeConnection>& connection) {
                onMainThread =
                    onMainThread && QThread::currentThread() == QCoreApplication::instance()->thread();
                received.push_back(connection);
                if (onEach) {
                    onEach(connection);
                }
            },
            timeouts);
        const auto error = server->start();
        ASSERT_FALSE(error.has_value()) << error->description.toStdString();
    }

    void TearDown() override {
        received.clear();
        server.reset();
        test::drainMainQueue();
    }

    bool waitForRequests(std::size_t count, int timeoutMs = 5000) {
        return test::waitUntil([&] { return received.size() >= count; }, timeoutMs);
    }

    // Sends one line and returns what the server answers once it has handled the request.
    std::optional<QByteArray> roundTrip(const QByteArray& line) {
        SocketClient client;
        if (!client.connectTo(server->socketPath()) || !client.send(line)) {
            return std::nullopt;
        }
        const std::size_t before = received.size();
        if (!waitForRequests(before + 1)) {
            return std::nullopt;
        }
        received.back()->reply();
        return client.readToEnd();
    }

    // Whether a request with this id, sent now, gets its empty reply.
    bool serves(const char* id) {
        return roundTrip(requestLine(QString::fromLatin1(id))) == "{\"id\":\"" + QByteArray(id) + "\"}\n";
    }

    // Connects the client and sends the line, if any.
    bool open(SocketClient& client, const QByteArray& line = {}) {
        return client.connectTo(server->socketPath()) && (line.isEmpty() || client.send(line));
    }

    test::TemporaryHome home;
    std::unique_ptr<BridgeServer> server;
    std::vector<std::shared_ptr<BridgeConnection>> received;
    std::function<void(const std::shared_ptr<BridgeConnection>&)> onEach;
    bool onMainThread = true;
};

} // namespace

TEST_F(BridgeServerTest, HandsRequestsToTheMainThreadAndAnswersWithOneLine) {
    SocketClient client;
    ASSERT_TRUE(client.connectTo(home.supportDir() + u"/bridge.sock"_s));
    // Only the first line of a chunk counts: the second one here is ignored.
    ASSERT_TRUE(
        client.send(requestLine(u"r1"_s, true, "{\"x\":\"caf\xc3\xa9\"}") + requestLine(u"ignored"_s)));
    ASSERT_TRUE(waitForRequests(1));
    EXPECT_TRUE(onMainThread);
    const BridgeRequest& request = received[0]->request();
    EXPECT_EQ(request.id, u"r1"_s);
    EXPECT_EQ(request.payload, QByteArray("{\"x\":\"caf\xc3\xa9\"}"));

    const QString text = QString::fromUtf8("{\"decision\":\"a/b\"}\n\xe2\x9c\x93");
    received[0]->reply(text);
    received[0]->reply(u"second answer is ignored"_s);
    const auto answer = client.readToEnd();
    ASSERT_TRUE(answer.has_value());
    ASSERT_TRUE(answer->endsWith('\n'));
    EXPECT_EQ(answer->count('\n'), 1);
    const QJsonObject object = QJsonDocument::fromJson(*answer).object();
    EXPECT_EQ(object.value(u"id"_s).toString(), u"r1"_s);
    EXPECT_EQ(object.value(u"stdout"_s).toString(), text);

    EXPECT_TRUE(serves("r2"));
    EXPECT_EQ(received.size(), 2U);
}

TEST_F(BridgeServerTest, ClosesARequestThatExpectsNoReplyBeforeHandlingIt) {
    SocketClient client;
    ASSERT_TRUE(open(client, requestLine(u"quiet"_s, false)));
    // The main loop is not run here: the close must not wait for the handler.
    EXPECT_TRUE(client.sawEndOfFile(5000));
    EXPECT_TRUE(received.empty());
    ASSERT_TRUE(waitForRequests(1));
    EXPECT_TRUE(received[0]->isFinished());
    received[0]->reply(u"nobody listens"_s); // a no-op, and no second close
}

TEST_F(BridgeServerTest, DropsBadInputSilentlyAndKeepsServing) {
    // What a bad line is, the decoder's tests say; here: a bad line, and a good one never ended.
    const QByteArray valid = requestLine(u"ok"_s);
    for (const QByteArray& bytes : {QByteArray("not json\n"), valid.chopped(1)}) {
        SocketClient client;
        ASSERT_TRUE(open(client, bytes));
        client.shutdownWrite();
        EXPECT_TRUE(client.sawEndOfFile(5000));
    }
    test::drainMainQueue();
    EXPECT_TRUE(received.empty());
    EXPECT_EQ(roundTrip(valid), QByteArray("{\"id\":\"ok\"}\n"));
}

TEST_F(BridgeServerTest, DropsALineOverTheLimitButTakesOneJustUnder) {
    {
        SocketClient client;
        ASSERT_TRUE(open(client));
        const QByteArray flood(BridgeProtocol::chunkBytes, 'a');
        bool stillOpen = true;
        for (qsizetype sent = 0; stillOpen && sent <= BridgeProtocol::maxLineBytes + 4 * flood.size();
             sent += flood.size()) {
            stillOpen = client.send(flood);
        }
        EXPECT_TRUE(!stillOpen || client.readToEnd().has_value()) << "the server must close an overlong line";
    }
    // The lines are made before connecting: a slow build (sanitisers) must not look like a silent client.
    {
        // Base64 makes a 30 MiB payload a 40 MiB line: over the limit, so the tool hears nothing.
        const QByteArray over = requestLine(u"over"_s, true, QByteArray(30 << 20, 'p'));
        SocketClient client;
        ASSERT_TRUE(open(client));
        EXPECT_TRUE(!client.send(over) || client.sawEndOfFile(5000));
    }
    const QByteArray payload(22 << 20, 'p'); // a line of about 29.3 MiB
    const QByteArray big = requestLine(u"big"_s, true, payload);
    SocketClient client;
    ASSERT_TRUE(open(client));
    std::thread writer([&] { client.send(big); });
    const bool arrived = waitForRequests(1, 30000);
    writer.join();
    ASSERT_TRUE(arrived);
    EXPECT_EQ(received.size(), 1U);
    EXPECT_EQ(received[0]->request().payload.size(), payload.size());
    received[0]->reply();
    EXPECT_EQ(client.readToEnd(), QByteArray("{\"id\":\"big\"}\n"));
}

TEST_F(BridgeServerTest, SilentClientsHoldUpNoOtherAndEachIsDroppedAtItsOwnDeadline) {
    // Deadlines far away: the normal client must be served while the silent ones still hold theirs,
    // which a server reading one client at a time could not do before they expire.
    restart({std::chrono::minutes(1), std::chrono::minutes(1), std::chrono::minutes(1)});
    std::vector<std::unique_ptr<SocketClient>> silent;
    for (const QByteArray& sent :
         {QByteArray(), QByteArray("{\"id\":"), QByteArray(), QByteArray("{"), QByteArray()}) {
        silent.push_back(std::make_unique<SocketClient>());
        ASSERT_TRUE(open(*silent.back(), sent));
    }
    EXPECT_TRUE(serves("behind"));
    for (const auto& client : silent) {
        EXPECT_FALSE(client->peerClosed(0));
    }

    // Too long silent, then too long for the whole line though never silent for long.
    using std::chrono::milliseconds, std::chrono::minutes;
    for (const BridgeTimeouts timeouts : {BridgeTimeouts{milliseconds(100), minutes(1), minutes(1)},
                                          BridgeTimeouts{minutes(1), milliseconds(100), minutes(1)}}) {
        restart(timeouts);
        SocketClient late;
        ASSERT_TRUE(open(late, "{\"id\":"));
        EXPECT_TRUE(late.sawEndOfFile(5000));
        EXPECT_TRUE(serves("next"));
    }
}

TEST_F(BridgeServerTest, AClientThatDoesNotReadALongReplyHoldsUpNobodyAndIsDroppedAtItsDeadline) {
    const QString longText(4 << 20, QLatin1Char('x'));
    const qsizetype fullSize = BridgeProtocol::encodeResponse({u"long"_s, longText})->size() + 1;
    for (const bool reads : {true, false}) {
        SCOPED_TRACE(reads ? "reads late" : "never reads");
        restart({std::chrono::minutes(1), std::chrono::minutes(1),
                 reads ? std::chrono::minutes(1) : std::chrono::milliseconds(100)});
        SocketClient idle;
        ASSERT_TRUE(open(idle, requestLine(u"long"_s)));
        ASSERT_TRUE(waitForRequests(1));
        // Were the reply written blocking, the next line would wait for the idle client for good;
        // the watchdog then shuts it, so the test fails on the truncated reply instead of hanging.
        std::promise<void> answered;
        std::thread watchdog([&idle, done = answered.get_future()] {
            if (done.wait_for(std::chrono::seconds(20)) == std::future_status::timeout) {
                ::shutdown(idle.fd(), SHUT_RDWR);
            }
        });
        received[0]->reply(longText);
        answered.set_value();
        watchdog.join();
        EXPECT_TRUE(serves("other"));
        if (reads) {
            EXPECT_EQ(idle.readToEnd().value_or(QByteArray()).size(), fullSize);
        } else {
            ASSERT_TRUE(idle.peerClosed(5000));
            EXPECT_LT(idle.readToEnd().value_or(QByteArray()).size(), fullSize);
        }
    }
}

TEST_F(BridgeServerTest, APeerThatGoesAwayFirstWithdrawsOnceAndTheReplyThenDoesNothing) {
    int disconnects = 0;
    onEach = [&](const std::shared_ptr<BridgeConnection>& connection) {
        connection->setOnDisconnect([&] { ++disconnects; });
    };
    {
        SocketClient client;
        ASSERT_TRUE(open(client, requestLine(u"dies"_s)));
        ASSERT_TRUE(waitForRequests(1));
    } // the tool is gone
    ASSERT_TRUE(test::waitUntil([&] { return disconnects == 1; }));
    EXPECT_TRUE(received[0]->isFinished());
    received[0]->reply(u"too late"_s);

    // Half-closing the write side while waiting also counts as going away.
    SocketClient halfClosed;
    ASSERT_TRUE(open(halfClosed, requestLine(u"half"_s)));
    ASSERT_TRUE(waitForRequests(2));
    halfClosed.shutdownWrite();
    ASSERT_TRUE(test::waitUntil([&] { return disconnects == 2; }));
    EXPECT_TRUE(halfClosed.sawEndOfFile(2000));

    // Answered first, then the tool exits: no withdrawal.
    SocketClient answered;
    ASSERT_TRUE(open(answered, requestLine(u"answered"_s)));
    ASSERT_TRUE(waitForRequests(3));
    received[2]->reply();
    EXPECT_EQ(answered.readToEnd(), QByteArray("{\"id\":\"answered\"}\n"));
    answered.close();
    EXPECT_FALSE(test::waitUntil([&] { return disconnects > 2; }, 300));
}

TEST_F(BridgeServerTest, ReplyAndPeerLossRacingCloseEachConnectionOnce) {
    std::atomic<int> disconnects = 0;
    onEach = [&](const std::shared_ptr<BridgeConnection>& connection) {
        connection->setOnDisconnect([&] { ++disconnects; });
    };
    // Warm up so lazily opened descriptors (epoll, the event loop's own) are counted in the baseline.
    ASSERT_TRUE(roundTrip(requestLine(u"warm"_s)).has_value());
    received.clear();
    const int baseline = openDescriptorCount();

    constexpr int rounds = 100;
    for (int i = 0; i < rounds; ++i) {
        auto client = std::make_unique<SocketClient>();
        ASSERT_TRUE(open(*client, requestLine(u"race-%1"_s.arg(i))));
        ASSERT_TRUE(waitForRequests(static_cast<std::size_t>(i) + 1));
        std::thread killer([&client] { client->close(); });
        received.back()->reply(u"answer"_s);
        killer.join();
    }
    test::waitUntil([&] { return openDescriptorCount() <= baseline; }, 3000);
    test::drainMainQueue();
    for (const auto& connection : received) {
        EXPECT_TRUE(connection->isFinished());
    }
    EXPECT_LE(disconnects.load(), rounds);
    EXPECT_EQ(openDescriptorCount(), baseline) << "every connection is closed, none twice or never";
}

TEST_F(BridgeServerTest, AThousandClientsThatConnectAndCloseLeaveTheServerServing) {
    std::thread crowd([&] {
        for (int i = 0; i < 1000; ++i) {
            SocketClient client;
            client.connectTo(server->socketPath());
            if (i % 3 == 0) {
                client.send("{\"id\":");
            }
        }
    });
    crowd.join();
    EXPECT_TRUE(serves("after"));
    EXPECT_EQ(received.size(), 1U);
}

TEST(BridgeServerFiles, ReplacesAStaleSocketKeepsItPrivateAndRemovesItOnStop) {
    test::TemporaryHome home;
    const QString path = home.supportDir() + u"/bridge.sock"_s;
    test::writeFile(path, "left by a crash");
    BridgeServer first([](const std::shared_ptr<BridgeConnection>& c) { c->reply(); });
    ASSERT_FALSE(first.start().has_value());
    struct stat info {};
    ASSERT_EQ(::stat(QFile::encodeName(path).constData(), &info), 0);
    EXPECT_TRUE(S_ISSOCK(info.st_mode));
    EXPECT_EQ(info.st_mode & 0777, 0600U);

    // A second copy takes the path over; the first one's stop leaves the new socket alone.
    BridgeServer second([](const std::shared_ptr<BridgeConnection>& c) { c->reply(u"second"_s); });
    ASSERT_FALSE(second.start().has_value());
    EXPECT_TRUE(first.socketTakenOver());
    EXPECT_FALSE(second.socketTakenOver());
    first.stop();
    EXPECT_TRUE(QFileInfo::exists(path));
    SocketClient client;
    ASSERT_TRUE(client.connectTo(path));
    ASSERT_TRUE(client.send(requestLine(u"who"_s)));
    ASSERT_TRUE(test::waitUntil([&] { return client.peerClosed(0); }));
    EXPECT_TRUE(client.readToEnd().value_or(QByteArray()).contains("second"));

    second.stop();
    EXPECT_FALSE(QFileInfo::exists(path));
    EXPECT_FALSE(second.isListening());
}

TEST(BridgeServerFiles, ReportsWhyItCouldNotOpenTheSocket) {
    test::TemporaryHome home;
    const QString longDir = home.path() + QLatin1Char('/') + QString(110, QLatin1Char('d'));
    qputenv("MIRROWISP_SUPPORT_DIR", QFile::encodeName(longDir));
    BridgeServer tooLong([](const std::shared_ptr<BridgeConnection>&) {});
    const auto error = tooLong.start();
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->code, ENAMETOOLONG);
    EXPECT_TRUE(error->description.contains(longDir));

    const QString blocked = home.path() + u"/file"_s;
    test::writeFile(blocked, "a file where a folder should be");
    qputenv("MIRROWISP_SUPPORT_DIR", QFile::encodeName(blocked + u"/support"_s));
    BridgeServer noDirectory([](const std::shared_ptr<BridgeConnection>&) {});
    const auto dirError = noDirectory.start();
    ASSERT_TRUE(dirError.has_value());
    EXPECT_FALSE(dirError->description.isEmpty());
    EXPECT_FALSE(noDirectory.isListening());
}
