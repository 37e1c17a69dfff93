// Cost of installing the hooks of all eight agents when they are already in place, as on every launch:
// median over many runs, beside the cost of only reading and parsing the same eight files (the floor
// any check of them pays).
#include "BenchSupport.h"
#include "base/AgentKind.h"
#include "base/UserDefaults.h"
#include "integration/HookInstaller.h"
#include "integration/Locations.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <vector>

using namespace mirrowisp;

namespace {

using bench::medianMs;

// A user's settings of some size beside our hooks, so parsing and comparing have real work.
void seedUserSettings(const QString& path) {
    QJsonObject settings;
    for (int i = 0; i < 200; ++i) {
        settings.insert(QStringLiteral("option%1").arg(i),
                        QStringLiteral("value number %1 with/a/path").arg(i));
    }
    QFile file(path);
    if (file.open(QIODevice::WriteOnly)) {
        file.write(QJsonDocument(settings).toJson());
    }
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTemporaryDir home;
    qputenv("MIRROWISP_SUPPORT_DIR", QFile::encodeName(home.path() + QStringLiteral("/support")));
    AgentEnvironment::setCurrent(Locations::standard(home.path()));
    UserDefaults defaults(home.path() + QStringLiteral("/defaults.json"));

    for (const AgentKind kind : AgentKinds::all) {
        const QString file = HookInstaller::integration(kind).file;
        if (kind == AgentKind::claude || kind == AgentKind::gemini) {
            QDir().mkpath(QFileInfo(file).absolutePath());
            seedUserSettings(file);
        }
        if (const auto error = HookInstaller::install(kind, defaults)) {
            std::fprintf(stderr, "install failed: %s\n", qPrintable(error->message()));
            return 1;
        }
    }

    constexpr int runs = 300;
    bool failed = false;
    const double install = medianMs(runs, [&] {
        for (const AgentKind kind : AgentKinds::all) {
            failed = HookInstaller::install(kind, defaults).has_value() || failed;
        }
    });
    std::size_t parsed = 0;
    const double readOnly = medianMs(runs, [&] {
        for (const AgentKind kind : AgentKinds::all) {
            QFile file(HookInstaller::integration(kind).file);
            if (file.open(QIODevice::ReadOnly)) {
                parsed += static_cast<std::size_t>(QJsonDocument::fromJson(file.readAll()).object().size());
            }
        }
    });
    if (failed) {
        std::fprintf(stderr, "an install failed during the runs\n");
        return 1;
    }
    std::printf("install, all eight agents, steady state: %.3f ms median of %d (target under 20 ms)\n",
                install, runs);
    std::printf("reference, read and parse the eight files: %.3f ms median of %d (%zu keys seen)\n", readOnly,
                runs, parsed);
    return 0;
}
