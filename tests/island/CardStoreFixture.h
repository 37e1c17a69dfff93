#pragma once

#include "agents/AgentStore.h"
#include "base/UserDefaults.h"
#include "island/DecisionCardActions.h"
#include "support/TestSupport.h"
#include "support/ToolEnd.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace mirrowisp::test {

// A hook event as the bridge hands it over, with the waiting tool's end of its socket pair.
struct HookCall {
    std::shared_ptr<BridgeConnection> connection;
    std::unique_ptr<ToolEnd> tool;
};

inline HookCall hookCall(const QString& id, AgentKind agent, const QJsonObject& event) {
    int fds[2];
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds), 0);
    return {BridgeConnection::make({id, agent, QJsonDocument(event).toJson(QJsonDocument::Compact), true, {}},
                                   fds[0]),
            std::make_unique<ToolEnd>(fds[1])};
}

// A real store fed through real connections over socket pairs, so a test reads each reply as the
// waiting hook tool would. The cards' delayed close is collected rather than timed.
class CardStoreFixture : public testing::Test {
protected:
    struct Waiting {
        std::shared_ptr<BridgeConnection> connection;
        std::unique_ptr<ToolEnd> tool;
        QString id;
    };

    struct Scheduled {
        double seconds;
        std::function<void()> task;
    };

    CardStoreFixture()
        : defaults(home.path() + QStringLiteral("/defaults.json")), store(defaults, clock),
          actions(
              store,
              [this](double seconds, std::function<void()> task) {
                  scheduled.push_back({seconds, std::move(task)});
              },
              [this] { ++closes; }) {}

    static QString text(const char* s) { return mirrowisp::test::text(s); }

    // A permission request that waits in the store.
    Waiting request(AgentKind agent, const char* sessionID, const char* tool, const QJsonObject& input,
                    QJsonObject extra = {}) {
        extra.insert(text("hook_event_name"), text("PermissionRequest"));
        extra.insert(text("session_id"), text(sessionID));
        extra.insert(text("tool_name"), text(tool));
        extra.insert(text("tool_input"), input);
        const QString id = QStringLiteral("req-%1").arg(nextID++);
        HookCall call = hookCall(id, agent, extra);
        Waiting waiting{std::move(call.connection), std::move(call.tool), id};
        store.handle(waiting.connection);
        EXPECT_NE(store.findDecision(waiting.id).first, nullptr) << "the request must wait for the user";
        return waiting;
    }

    // The decision object the agent received, unwrapped from the reply shape.
    static QJsonObject decisionOf(Waiting& waiting) {
        const std::optional<QJsonObject> reply = waiting.tool->reply();
        if (!reply) {
            ADD_FAILURE() << "the tool got no reply";
            return {};
        }
        const QJsonObject printed =
            QJsonDocument::fromJson(reply->value(text("stdout")).toString().toUtf8()).object();
        return printed[text("hookSpecificOutput")][text("decision")].toObject();
    }

    // Runs what the cards scheduled; returns the delays they asked for.
    std::vector<double> runScheduled() {
        std::vector<double> delays;
        std::vector<Scheduled> due = std::move(scheduled);
        scheduled.clear();
        for (Scheduled& s : due) {
            delays.push_back(s.seconds);
            s.task();
        }
        return delays;
    }

    TemporaryHome home;
    UserDefaults defaults;
    ManualClock clock;
    AgentStore store;
    std::vector<Scheduled> scheduled;
    int closes = 0;
    DecisionCardActions actions;
    int nextID = 1;
};

} // namespace mirrowisp::test
