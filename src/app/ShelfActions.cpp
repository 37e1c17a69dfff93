#include "app/ShelfActions.h"

#include "agents/AgentSession.h"
#include "app/AppModel.h"
#include "base/MainQueue.h"
#include "base/ProcessRunner.h"
#include "bridge/BridgeProtocol.h"
#include "jump/TerminalDrivers.h"

#include <QClipboard>
#include <QCoreApplication>
#include <QFileInfo>
#include <QGuiApplication>
#include <QPointer>
#include <QThreadPool>
#include <QUrl>

namespace mirrowisp::ShelfActions {

using namespace TerminalDrivers;

namespace {

QStringList pathsOf(AppModel& app, const QUuid& id) {
    QList<ShelfItem> items;
    if (const auto item = app.shelf().item(id)) {
        items.append(*item);
    } else if (const auto entry = app.shelf().entry(id)) {
        items = entry->items;
    }
    QStringList paths;
    for (const ShelfItem& item : items) {
        if (const auto path = ShelfStore::resolve(item)) {
            paths.append(*path);
        }
    }
    return paths;
}

bool exists(AppModel& app, const QUuid& id) {
    return app.shelf().item(id) || app.shelf().entry(id);
}

} // namespace

ShelfConversionJob* convert(AppModel& app, const QUuid& id, const ShelfConverter::Conversion& conversion,
                            std::function<void(const ShelfConverter::Report&)> done) {
    if (!exists(app, id)) {
        return nullptr;
    }
    auto* job = new ShelfConversionJob(conversion, pathsOf(app, id), &app);
    QObject::connect(job, &ShelfConversionJob::finished, &app,
                     [&app, job, done = std::move(done)](const ShelfConverter::Report& report) {
                         if (!report.files.isEmpty()) {
                             QList<QUrl> urls;
                             for (const QString& path : report.files) {
                                 urls.append(QUrl::fromLocalFile(path));
                             }
                             app.addToShelf(urls, urls.size() != 1);
                         }
                         if (done) {
                             done(report);
                         }
                         job->deleteLater();
                     });
    job->start();
    return job;
}

QString pastedPath(const QString& path) {
    static const QString plain = QStringLiteral("/._-+,:@%=~");
    const bool needsQuotes = std::any_of(path.begin(), path.end(),
                                         [](QChar c) { return !c.isLetterOrNumber() && !plain.contains(c); });
    if (!needsQuotes) {
        return path + QLatin1Char(' ');
    }
    QString quoted = path;
    quoted.replace(QLatin1Char('\''), QStringLiteral("'\\''"));
    return QLatin1Char('\'') + quoted + QStringLiteral("' ");
}

bool pasteIntoTmux(const QString& text, const ProcessContext& context) {
    const std::optional<QString> pane = context.tmuxPane && !context.tmuxPane->isEmpty()
                                            ? context.tmuxPane
                                            : context.value(QStringLiteral("TMUX_PANE"));
    const std::optional<QString> variable = context.value(QStringLiteral("TMUX"));
    const std::optional<QString> socket = variable ? tmuxSocket(*variable) : std::nullopt;
    const Tools tools = Tools::system();
    const std::optional<QString> tmux = context.tmuxBinary && QFileInfo(*context.tmuxBinary).isExecutable()
                                            ? context.tmuxBinary
                                            : findTool(QStringLiteral("tmux"), tools);
    if (!pane || !socket || !tmux) {
        return false;
    }
    const QString buffer = QStringLiteral("mirrowisp-shelf");
    const QStringList base{QStringLiteral("-S"), *socket};
    const auto ran = [&](const QStringList& arguments) {
        const auto result = ProcessRunner::run(*tmux, base + arguments, tools.timeoutSeconds);
        return result.ok() && result.exitStatus == 0;
    };
    return ran({QStringLiteral("set-buffer"), QStringLiteral("-b"), buffer, QStringLiteral("--"), text}) &&
           ran({QStringLiteral("paste-buffer"), QStringLiteral("-p"), QStringLiteral("-d"),
                QStringLiteral("-b"), buffer, QStringLiteral("-t"), *pane});
}

std::optional<QString> typeIntoTerminal(const QString& text, const ProcessContext& context) {
    if (pasteIntoTmux(text, context)) {
        return QStringLiteral("tmux");
    }
    const Tools tools = Tools::system();
    if (sendTextKitty(text, context, tools)) {
        return QStringLiteral("kitty");
    }
    if (sendTextWezTerm(text, context, tools)) {
        return QStringLiteral("wezterm");
    }
    return std::nullopt;
}

bool send(AppModel& app, const QUuid& id, const AgentSession& session, std::function<void(QString)> done) {
    if (!exists(app, id)) {
        return false;
    }
    QString text;
    for (const QString& path : pathsOf(app, id)) {
        text += pastedPath(path);
    }
    QThreadPool::globalInstance()->start(
        [text, context = session.context(), done = std::move(done)]() mutable {
            const std::optional<QString> way = typeIntoTerminal(text, context);
            postToMain([way, text, done = std::move(done)] {
                // Without a display there is no clipboard either; the caller still hears what happened.
                if (!way && qobject_cast<QGuiApplication*>(QCoreApplication::instance()) != nullptr) {
                    QGuiApplication::clipboard()->setText(text.trimmed());
                }
                done(way.value_or(QStringLiteral("clipboard")));
            });
        });
    return true;
}

} // namespace mirrowisp::ShelfActions
