#pragma once

#include "agents/AgentStore.h"
#include "base/UserDefaults.h"
#include "support/TestSupport.h"
#include "support/ToolEnd.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>
#include <vector>

namespace mirrowisp::test {

// A store over a temporary settings file and a hand-driven clock; events go in through real
// connections over socket pairs, so each reply is read as the tool would read it.
class AgentStoreFixture : public testing::Test {
protected:
    AgentStoreFixture();

    struct Sent {
        std::shared_ptr<BridgeConnection> connection;
        std::unique_ptr<ToolEnd> tool;
    };

    Sent send(AgentKind agent, const QJsonObject& event, const ProcessContext& context = {},
              bool expectsReply = true);
    Sent sendRaw(AgentKind agent, const QByteArray& payload, const ProcessContext& context = {},
                 bool expectsReply = true);
    // Sends and checks that the event got the empty reply at once.
    void sendAnswered(AgentKind agent, const QJsonObject& event, const ProcessContext& context = {});
    AgentSession* session(AgentKind agent, const QString& sessionID) const;
    int signalCount(AgentSignal signal) const;
    template <typename Change> void setting(Change change) {
        AgentStoreSettings settings = store.settings();
        change(settings);
        store.setSettings(settings);
    }

    static QString text(const char* s) { return QString::fromUtf8(s); }
    static QJsonObject event(const char* name, const char* sessionID = "s1", QJsonObject extra = {});

    TemporaryHome home;
    UserDefaults defaults;
    ManualClock clock;
    AgentStore store;
    std::vector<std::pair<AgentSignal, QString>> raised;
    ToolEnd* lastTool = nullptr; // the end of the request being handled
    QString fromHost;            // the remote host the next requests arrive from; empty: this machine
    int nextID = 1;
};

} // namespace mirrowisp::test
