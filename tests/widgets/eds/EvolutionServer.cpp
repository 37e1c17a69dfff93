#include "EvolutionServer.h"

#include "support/TestSupport.h"

#include <QDir>
#include <csignal>
#include <libecal/libecal.h>
#include <sys/prctl.h>

namespace mirrowisp::test {

namespace {

constexpr int startMilliseconds = 15000;

const char* const sources[][2] = {
    {"work", "[Data Source]\nDisplayName=Work\nEnabled=true\nParent=local-stub\n\n"
             "[Calendar]\nBackendName=local\nColor=#ff8800\nSelected=true\n"},
    {"todo", "[Data Source]\nDisplayName=Errands\nEnabled=true\nParent=local-stub\n\n"
             "[Task List]\nBackendName=local\nColor=#33aa55\nSelected=true\n"},
};

const char* const busConfig =
    R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:tmpdir=/tmp</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";

ECalClient* connect(const char* sourceUid) {
    ESourceRegistry* registry = e_source_registry_new_sync(nullptr, nullptr);
    if (!registry) {
        return nullptr;
    }
    ESource* source = e_source_registry_ref_source(registry, sourceUid);
    g_object_unref(registry);
    if (!source) {
        return nullptr;
    }
    const auto type = e_source_has_extension(source, E_SOURCE_EXTENSION_CALENDAR)
                          ? E_CAL_CLIENT_SOURCE_TYPE_EVENTS
                          : E_CAL_CLIENT_SOURCE_TYPE_TASKS;
    EClient* client = e_cal_client_connect_sync(source, type, static_cast<guint32>(-1), nullptr, nullptr);
    g_object_unref(source);
    return client ? E_CAL_CLIENT(client) : nullptr;
}

} // namespace

EvolutionServer::EvolutionServer(bool withDaemons) {
    const QString root = dir_.path();
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_RUNTIME_DIR"}) {
        const QString path = root + QLatin1Char('/') + QString::fromLatin1(name).toLower();
        QDir().mkpath(path);
        env.insert(QLatin1String(name), path);
        qputenv(name, QFile::encodeName(path));
    }
    // No settings daemon; and a bus that starts nothing by itself, so only the daemons started here
    // answer, under the folders set here.
    env.insert(QStringLiteral("GSETTINGS_BACKEND"), QStringLiteral("memory"));
    writeFile(root + QStringLiteral("/bus.conf"), busConfig);
    qputenv("GSETTINGS_BACKEND", "memory");
    for (const auto& [uid, text] : sources) {
        writeFile(root + QStringLiteral("/xdg_config_home/evolution/sources/") + QLatin1String(uid) +
                      QStringLiteral(".source"),
                  text);
    }
    bus_.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
    bus_.start(QStringLiteral("dbus-daemon"),
               {QStringLiteral("--config-file=") + root + QStringLiteral("/bus.conf"),
                QStringLiteral("--nofork"), QStringLiteral("--print-address=1")});
    if (!bus_.waitForReadyRead(startMilliseconds)) {
        problem_ = QStringLiteral("dbus-daemon did not start");
        return;
    }
    const QString address = QString::fromUtf8(bus_.readLine()).trimmed();
    env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), address);
    qputenv("DBUS_SESSION_BUS_ADDRESS", address.toUtf8());
    if (!withDaemons) {
        return;
    }
    const auto launch = [&env](const char* program, const QStringList& arguments = {}) {
        auto process = std::make_unique<QProcess>();
        process->setProcessEnvironment(env);
        // A test that times out must not leave the daemons behind.
        process->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
        process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process->start(QLatin1String(program), arguments);
        return process;
    };
    registry_ = launch("/usr/libexec/evolution-source-registry");
    // Without -r it quits whenever its last client has gone, which a test's client does often.
    factory_ = launch("/usr/libexec/evolution-calendar-factory", {QStringLiteral("--keep-running")});
    // Ready once both sources can be opened.
    const bool ready = waitUntil(
        [this] {
            ECalClient* work = connect("work");
            ECalClient* todo = work ? connect("todo") : nullptr;
            const bool opened = work && todo;
            for (ECalClient* client : {work, todo}) {
                if (client) {
                    g_object_unref(client);
                }
            }
            return opened || registry_->state() != QProcess::Running ||
                   factory_->state() != QProcess::Running;
        },
        startMilliseconds);
    if (registry_->state() != QProcess::Running || factory_->state() != QProcess::Running) {
        problem_ = QStringLiteral("the registry or the calendar factory exited");
    } else if (!ready) {
        problem_ = QStringLiteral("the sources could not be opened in time");
    }
}

EvolutionServer::~EvolutionServer() {
    for (QProcess* process : {factory_.get(), registry_.get(), &bus_}) {
        if (process && process->state() != QProcess::NotRunning) {
            process->terminate();
            if (!process->waitForFinished(5000)) {
                process->kill();
                process->waitForFinished(5000);
            }
        }
    }
}

bool EvolutionServer::add(const char* sourceUid, const QByteArray& component) {
    ECalClient* client = connect(sourceUid);
    ICalComponent* parsed = client ? i_cal_component_new_from_string(component.constData()) : nullptr;
    const bool added = parsed && e_cal_client_create_object_sync(client, parsed, E_CAL_OPERATION_FLAG_NONE,
                                                                 nullptr, nullptr, nullptr);
    if (parsed) {
        g_object_unref(parsed);
    }
    if (client) {
        g_object_unref(client);
    }
    return added;
}

QByteArray EvolutionServer::component(const char* sourceUid, const QByteArray& uid) {
    ECalClient* client = connect(sourceUid);
    ICalComponent* found = nullptr;
    QByteArray out;
    if (client && e_cal_client_get_object_sync(client, uid.constData(), nullptr, &found, nullptr, nullptr)) {
        gchar* text = i_cal_component_as_ical_string(found);
        out = text;
        g_free(text);
        g_object_unref(found);
    }
    if (client) {
        g_object_unref(client);
    }
    return out;
}

void EvolutionServer::killCalendarFactory() {
    if (!factory_) {
        return;
    }
    // Each calendar is served by a subprocess of the factory: they all go.
    const QString pid = QString::number(factory_->processId());
    for (const QString& task : QDir(QStringLiteral("/proc/") + pid + QStringLiteral("/task"))
                                   .entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QByteArray children = readFile(QStringLiteral("/proc/%1/task/%2/children").arg(pid, task));
        for (const QByteArray& child : children.split(' ')) {
            if (const int id = child.trimmed().toInt(); id > 0) {
                ::kill(id, SIGKILL);
            }
        }
    }
    factory_->kill();
    factory_->waitForFinished(5000);
}

} // namespace mirrowisp::test
