#pragma once

#include "front/SettingsServices.h"

#include <QObject>
#include <QStringList>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

namespace mirrowisp {

// Every agent kind as the settings window and the setup guide list it: found on this machine or not,
// connected or not and why, with the connect and disconnect the terminal's `ctl` offers. The agents'
// files are read and written off the main thread; rows change when the answers come back.
class SettingsAgentList : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("the front door makes it")
    // Each row: agent, name, accent, detected, connected, setup, summary, file, steps, message, working.
    Q_PROPERTY(QVariant rows READ rowsValue NOTIFY rowsChanged)
    Q_PROPERTY(bool loaded READ loaded NOTIFY rowsChanged)
    Q_PROPERTY(bool codexDetected READ codexDetected NOTIFY rowsChanged)
    // "ready", "needsApproval" or "disabled", with the notice and steps for the last two.
    Q_PROPERTY(QString codexStatus READ codexStatus NOTIFY codexChanged)
    Q_PROPERTY(QString codexHeading READ codexHeading NOTIFY codexChanged)
    Q_PROPERTY(QString codexBody READ codexBody NOTIFY codexChanged)
    Q_PROPERTY(QStringList codexSteps READ codexSteps NOTIFY codexChanged)

public:
    explicit SettingsAgentList(SettingsServices services, QObject* parent = nullptr);

    QVariantList rows() const { return rows_; }
    // Untyped for the views, which filter it as a script array.
    QVariant rowsValue() const { return rows_; }
    bool loaded() const { return loaded_; }
    bool codexDetected() const;
    QString codexStatus() const;
    QString codexHeading() const;
    QString codexBody() const;
    QStringList codexSteps() const;

    // Reads every agent's state again; the rows follow when it is read.
    Q_INVOKABLE void refresh();
    // What `ctl connect` and `ctl disconnect` do; the row shows the outcome or the error's text.
    Q_INVOKABLE void setConnected(const QString& agent, bool connect);
    Q_INVOKABLE void showFile(const QString& path) const;

Q_SIGNALS:
    void rowsChanged();
    void codexChanged();
    // One connect or disconnect finished: its error text, empty when it worked.
    void connectFinished(const QString& agent, const QString& error);

private:
    void setRow(const QString& agent, const QString& key, const QVariant& value);

    SettingsServices services_;
    QVariantList rows_;
    QVariantMap messages_; // agent to the last connect's outcome, kept across refreshes
    bool loaded_ = false;
    int generation_ = 0;
};

} // namespace mirrowisp
