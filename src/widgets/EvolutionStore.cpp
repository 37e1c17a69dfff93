#include "widgets/EvolutionStore.h"

#include "base/Log.h"
#include "base/MainQueue.h"
#include "base/SerialQueue.h"
#include "widgets/IcalEvent.h"
#include "widgets/IcsCalendar.h"

#include <QPointer>
#include <QSet>
#include <QTimeZone>
#include <algorithm>
#include <libecal/libecal.h>
#include <map>
#include <thread>

namespace mirrowisp {

namespace {

constexpr int settleMilliseconds = 300;
// Not waiting for a remote calendar to come online: its cache answers, its view tells of news.
constexpr auto connectSeconds = static_cast<guint32>(-1);

struct Unref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <class T> using GObjectPtr = std::unique_ptr<T, Unref>;

enum class Kind { events, tasks };

const char* extensionOf(Kind kind) {
    return kind == Kind::events ? E_SOURCE_EXTENSION_CALENDAR : E_SOURCE_EXTENSION_TASK_LIST;
}

QString text(const char* value) {
    return value ? QString::fromUtf8(value) : QString();
}

icalcomponent* nativeOf(gpointer object) {
    return static_cast<icalcomponent*>(i_cal_object_get_native(I_CAL_OBJECT(object)));
}

std::optional<Timestamp> stampOf(ICalTime* time) {
    if (!time) {
        return std::nullopt;
    }
    return IcalEvent::stamp(*static_cast<icaltimetype*>(i_cal_object_get_native(I_CAL_OBJECT(time))));
}

// The local zone, for floating times and all-day events; UTC when the system names none libical knows.
ICalTimezone* localZone() {
    const QByteArray name = QTimeZone::systemTimeZoneId();
    ICalTimezone* zone = name.isEmpty() ? nullptr : i_cal_timezone_get_builtin_timezone(name.constData());
    return zone ? zone : i_cal_timezone_get_utc_timezone();
}

QList<EvolutionStore::Source> sourcesOf(ESourceRegistry* registry, Kind kind) {
    QList<EvolutionStore::Source> out;
    GList* list = e_source_registry_list_enabled(registry, extensionOf(kind));
    for (GList* at = list; at; at = at->next) {
        auto* source = static_cast<ESource*>(at->data);
        auto* selectable = static_cast<ESourceSelectable*>(e_source_get_extension(source, extensionOf(kind)));
        out.append({text(e_source_get_uid(source)), text(e_source_get_display_name(source)),
                    calendarColor(text(e_source_selectable_get_color(selectable)))});
    }
    g_list_free_full(list, g_object_unref);
    return out;
}

} // namespace

// Everything GLib is touched on this thread only: it runs a main context of its own, which the
// registry and the clients deliver their signals on.
struct EvolutionStore::Worker {
    struct Connection {
        GObjectPtr<ECalClient> client;
        GObjectPtr<ECalClientView> view;
        Worker* worker = nullptr;

        Connection(GObjectPtr<ECalClient> c, ECalClientView* v, Worker* w)
            : client(std::move(c)), view(v), worker(w) {}
        Connection(Connection&&) = default;
        Connection& operator=(Connection&&) = default;
        ~Connection() {
            // Nothing of this connection reaches the worker once it is gone.
            if (view) {
                g_signal_handlers_disconnect_by_data(view.get(), worker);
                e_cal_client_view_stop(view.get(), nullptr);
            }
            if (client) {
                g_signal_handlers_disconnect_by_data(client.get(), worker);
            }
        }
    };

    QPointer<EvolutionStore> owner;
    GMainContext* context = g_main_context_new();
    GMainLoop* loop = g_main_loop_new(context, FALSE);
    GCancellable* cancellable = g_cancellable_new();
    GObjectPtr<ESourceRegistry> registry;
    std::map<std::pair<Kind, QString>, Connection> connections;
    bool warned = false;
    // Each calendar's last answer, which stands in when it fails.
    std::map<QString, std::vector<CalendarEvent>> lastRead;
    std::thread thread;

    explicit Worker(EvolutionStore* store) : owner(store) {
        thread = std::thread([this] {
            nameCurrentThread("mirrowisp.eds");
            g_main_context_push_thread_default(context);
            g_main_loop_run(loop);
            connections.clear();
            if (registry) {
                g_signal_handlers_disconnect_by_data(registry.get(), this);
            }
            registry.reset();
            g_main_context_pop_thread_default(context);
        });
    }

    ~Worker() {
        g_cancellable_cancel(cancellable);
        invoke([this] { g_main_loop_quit(loop); });
        thread.join();
        g_main_loop_unref(loop);
        g_main_context_unref(context);
        g_object_unref(cancellable);
    }

    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    void invoke(std::function<void()> work) {
        g_main_context_invoke_full(
            context, G_PRIORITY_DEFAULT,
            [](gpointer data) {
                (*static_cast<std::function<void()>*>(data))();
                return G_SOURCE_REMOVE;
            },
            new std::function<void()>(std::move(work)),
            [](gpointer data) { delete static_cast<std::function<void()>*>(data); });
    }

    void failed(const char* what, const GError* error) {
        if (!warned && !g_cancellable_is_cancelled(cancellable)) {
            warned = true; // once: a desktop without the server would repeat it every minute
            logLine(QStringLiteral("calendar server: %1: %2")
                        .arg(QLatin1String(what), error ? text(error->message) : QString()));
        }
    }

    bool ensureRegistry() {
        if (registry) {
            return true;
        }
        GError* error = nullptr;
        registry.reset(e_source_registry_new_sync(cancellable, &error));
        if (!registry) {
            failed("no source registry", error);
            g_clear_error(&error);
            return false;
        }
        warned = false;
        for (const char* signal :
             {"source-added", "source-removed", "source-changed", "source-enabled", "source-disabled"}) {
            g_signal_connect_swapped(registry.get(), signal,
                                     G_CALLBACK(+[](Worker* self) { self->publish(); }), this);
        }
        publish();
        return true;
    }

    // Tells the main thread which calendars and lists there are, and lets go of those that went.
    void publish() {
        QList<Source> calendars = sourcesOf(registry.get(), Kind::events);
        QList<Source> lists = sourcesOf(registry.get(), Kind::tasks);
        std::erase_if(connections, [&](const auto& entry) {
            const QList<Source>& kept = entry.first.first == Kind::events ? calendars : lists;
            return std::none_of(kept.begin(), kept.end(),
                                [&](const Source& s) { return s.uid == entry.first.second; });
        });
        postToMain([owner = owner, calendars = std::move(calendars), lists = std::move(lists)]() mutable {
            if (owner) {
                owner->publish(std::move(calendars), std::move(lists));
            }
        });
    }

    void notice(Kind kind) {
        postToMain([owner = owner, kind] {
            if (owner) {
                (kind == Kind::events ? owner->eventsSettle_ : owner->tasksSettle_).start();
            }
        });
    }

    // The client of a source, connected on first use; its view reports changes from then on.
    ECalClient* client(const QString& uid, Kind kind) {
        const auto key = std::make_pair(kind, uid);
        if (const auto found = connections.find(key); found != connections.end()) {
            return found->second.client.get();
        }
        GObjectPtr<ESource> source(e_source_registry_ref_source(registry.get(), uid.toUtf8().constData()));
        if (!source) {
            return nullptr;
        }
        GError* error = nullptr;
        const auto type =
            kind == Kind::events ? E_CAL_CLIENT_SOURCE_TYPE_EVENTS : E_CAL_CLIENT_SOURCE_TYPE_TASKS;
        GObjectPtr<ECalClient> client(
            E_CAL_CLIENT(e_cal_client_connect_sync(source.get(), type, connectSeconds, cancellable, &error)));
        if (!client) {
            failed("cannot open a calendar", error);
            g_clear_error(&error);
            return nullptr;
        }
        e_cal_client_set_default_timezone(client.get(), localZone());
        // The factory went away: connect again on the next use, and read again now.
        g_signal_connect_swapped(client.get(), "backend-died",
                                 G_CALLBACK(+[](Worker* self) { self->dropDead(); }), this);
        ECalClientView* view = nullptr;
        if (e_cal_client_get_view_sync(client.get(), "#t", &view, cancellable, &error)) {
            // What is there already has been read; only changes from now on are news.
            e_cal_client_view_set_flags(view, E_CAL_CLIENT_VIEW_FLAGS_NONE, nullptr);
            const GCallback changed = kind == Kind::events
                                          ? G_CALLBACK(+[](Worker* self) { self->notice(Kind::events); })
                                          : G_CALLBACK(+[](Worker* self) { self->notice(Kind::tasks); });
            for (const char* signal : {"objects-added", "objects-modified", "objects-removed"}) {
                g_signal_connect_swapped(view, signal, changed, this);
            }
            e_cal_client_view_start(view, &error);
        }
        if (error) {
            failed("no change notices", error);
            g_clear_error(&error);
        }
        ECalClient* raw = client.get();
        connections.emplace(key, Connection(std::move(client), view, this));
        return raw;
    }

    void dropDead() {
        // Not from within the client's own signal (invoke would run it at once on this thread): it
        // goes once the signal is over.
        GSource* idle = g_idle_source_new();
        g_source_set_callback(
            idle,
            [](gpointer data) {
                auto* self = static_cast<Worker*>(data);
                self->connections.clear();
                self->notice(Kind::events);
                self->notice(Kind::tasks);
                return G_SOURCE_REMOVE;
            },
            this, nullptr);
        g_source_attach(idle, context);
        g_source_unref(idle);
    }

    struct Collected {
        std::vector<CalendarEvent>* out;
        QString color;
    };

    // One calendar's events and occurrences in the span; nothing when the server did not answer.
    std::optional<std::vector<CalendarEvent>> events(const Source& source, Timestamp from, Timestamp to) {
        ECalClient* client = this->client(source.uid, Kind::events);
        if (!client) {
            return std::nullopt;
        }
        gchar* start = isodate_from_time_t(static_cast<time_t>(from));
        gchar* end = isodate_from_time_t(static_cast<time_t>(to));
        const QByteArray query =
            QStringLiteral("(occur-in-time-range? (make-time \"%1\") (make-time \"%2\"))")
                .arg(QLatin1String(start), QLatin1String(end))
                .toUtf8();
        g_free(start);
        g_free(end);
        GSList* components = nullptr;
        GError* error = nullptr;
        if (!e_cal_client_get_object_list_sync(client, query.constData(), &components, cancellable, &error)) {
            failed("cannot read a calendar", error);
            g_clear_error(&error);
            // Connected afresh next time: the server may have come back by then.
            connections.erase({Kind::events, source.uid});
            return std::nullopt;
        }
        std::vector<CalendarEvent> out;
        Collected collected{&out, source.color};
        // A repeating event's moved occurrences come with it: each event once.
        QSet<QString> done;
        for (GSList* at = components; at; at = at->next) {
            auto* component = static_cast<ICalComponent*>(at->data);
            const QString uid = text(i_cal_component_get_uid(component));
            if (done.contains(uid)) {
                continue;
            }
            done.insert(uid);
            e_cal_client_generate_instances_for_object_sync(
                client, component, static_cast<time_t>(from), static_cast<time_t>(to), cancellable,
                +[](ICalComponent* event, ICalTime* first, ICalTime* last, gpointer data, GCancellable*,
                    GError**) -> gboolean {
                    auto* into = static_cast<Collected*>(data);
                    CalendarEvent occurrence = IcalEvent::fieldsOf(nativeOf(event), into->color);
                    occurrence.start = stampOf(first);
                    occurrence.end = stampOf(last);
                    occurrence.isAllDay = i_cal_time_is_date(first) != 0;
                    if (occurrence.start && occurrence.end) {
                        into->out->push_back(std::move(occurrence));
                    }
                    return TRUE;
                },
                &collected);
        }
        g_slist_free_full(components, g_object_unref);
        return out;
    }

    std::vector<CalendarEvent> events(Timestamp from, Timestamp to) {
        std::vector<CalendarEvent> out;
        if (!ensureRegistry()) {
            return out;
        }
        std::map<QString, std::vector<CalendarEvent>> read;
        for (const Source& source : sourcesOf(registry.get(), Kind::events)) {
            auto events = this->events(source, from, to);
            if (!events) {
                // The server stopped answering: what it said last, while it comes back.
                const auto last = lastRead.find(source.uid);
                if (last == lastRead.end()) {
                    continue;
                }
                events.emplace();
                std::copy_if(last->second.begin(), last->second.end(), std::back_inserter(*events),
                             [&](const CalendarEvent& e) { return *e.start<to&& * e.end> from; });
            }
            out.insert(out.end(), events->begin(), events->end());
            read.emplace(source.uid, *std::move(events));
        }
        lastRead = std::move(read);
        return out;
    }

    std::vector<Reminder> tasks(const QString& listID) {
        std::vector<Reminder> out;
        if (!ensureRegistry()) {
            return out;
        }
        for (const Source& list : sourcesOf(registry.get(), Kind::tasks)) {
            ECalClient* client =
                listID.isEmpty() || list.uid == listID ? this->client(list.uid, Kind::tasks) : nullptr;
            GSList* components = nullptr;
            GError* error = nullptr;
            if (!client || !e_cal_client_get_object_list_as_comps_sync(client, "(not (is-completed?))",
                                                                       &components, cancellable, &error)) {
                g_clear_error(&error);
                if (client) {
                    connections.erase({Kind::tasks, list.uid});
                }
                continue;
            }
            for (GSList* at = components; at; at = at->next) {
                icalcomponent* task = nativeOf(e_cal_component_get_icalcomponent(E_CAL_COMPONENT(at->data)));
                if (icalcomponent_get_status(task) == ICAL_STATUS_COMPLETED ||
                    icalcomponent_get_status(task) == ICAL_STATUS_CANCELLED) {
                    continue;
                }
                Reminder reminder{list.uid,
                                  text(icalcomponent_get_uid(task)),
                                  text(icalcomponent_get_summary(task)).trimmed(),
                                  std::nullopt,
                                  false,
                                  list.color};
                if (icalproperty* due = icalcomponent_get_first_property(task, ICAL_DUE_PROPERTY)) {
                    const icaltimetype when = icalproperty_get_datetime_with_component(due, task);
                    reminder.due = IcalEvent::stamp(when);
                    reminder.isDueDate = when.is_date != 0;
                }
                out.push_back(std::move(reminder));
            }
            g_slist_free_full(components, g_object_unref);
        }
        return out;
    }

    bool complete(const Reminder& task, Timestamp at) {
        ECalClient* client = ensureRegistry() ? this->client(task.listID, Kind::tasks) : nullptr;
        ICalComponent* found = nullptr;
        GError* error = nullptr;
        if (!client || !e_cal_client_get_object_sync(client, task.uid.toUtf8().constData(), nullptr, &found,
                                                     cancellable, &error)) {
            g_clear_error(&error);
            return false;
        }
        GObjectPtr<ECalComponent> component(e_cal_component_new_from_icalcomponent(found));
        if (!component) {
            return false;
        }
        e_cal_component_set_status(component.get(), I_CAL_STATUS_COMPLETED);
        e_cal_component_set_percent_complete(component.get(), 100);
        GObjectPtr<ICalTime> completed(i_cal_time_new_from_timet_with_zone(
            static_cast<time_t>(at), 0, i_cal_timezone_get_utc_timezone()));
        e_cal_component_set_completed(component.get(), completed.get());
        const bool written = e_cal_client_modify_object_sync(
            client, e_cal_component_get_icalcomponent(component.get()), E_CAL_OBJ_MOD_THIS,
            E_CAL_OPERATION_FLAG_NONE, cancellable, &error);
        if (!written) {
            logLine(QStringLiteral("calendar server: cannot complete a task: %1").arg(text(error->message)));
            g_clear_error(&error);
        }
        return written;
    }
};

EvolutionStore::EvolutionStore(QObject* parent) : CalendarProvider(parent) {
    for (QTimer* settle : {&eventsSettle_, &tasksSettle_}) {
        settle->setSingleShot(true);
        settle->setInterval(settleMilliseconds);
    }
    connect(&eventsSettle_, &QTimer::timeout, this, &CalendarProvider::changed);
    connect(&tasksSettle_, &QTimer::timeout, this, &EvolutionStore::tasksChanged);
}

EvolutionStore::~EvolutionStore() = default;

void EvolutionStore::start() {
    if (!worker_) {
        worker_ = std::make_unique<Worker>(this);
        worker_->invoke([worker = worker_.get()] { worker->ensureRegistry(); });
    }
}

QStringList EvolutionStore::calendars() const {
    QStringList names;
    for (const Source& source : calendars_) {
        names.append(source.name);
    }
    return names;
}

void EvolutionStore::publish(QList<Source> calendars, QList<Source> taskLists) {
    const bool calendarsMoved = calendars != calendars_;
    const bool listsMoved = taskLists != taskLists_;
    calendars_ = std::move(calendars);
    taskLists_ = std::move(taskLists);
    if (calendarsMoved) {
        Q_EMIT changed();
    }
    if (listsMoved) {
        Q_EMIT taskListsChanged();
        Q_EMIT tasksChanged();
    }
}

void EvolutionStore::fetch(Timestamp from, Timestamp to, Answer answer) {
    start();
    worker_->invoke([worker = worker_.get(), from, to, answer = std::move(answer)]() mutable {
        postToMain(
            [owner = worker->owner, answer = std::move(answer), events = worker->events(from, to)]() mutable {
                if (owner) {
                    answer(std::move(events));
                }
            });
    });
}

void EvolutionStore::fetchTasks(const QString& listID, TasksAnswer answer) {
    start();
    worker_->invoke([worker = worker_.get(), listID, answer = std::move(answer)]() mutable {
        postToMain(
            [owner = worker->owner, answer = std::move(answer), tasks = worker->tasks(listID)]() mutable {
                if (owner) {
                    answer(std::move(tasks));
                }
            });
    });
}

void EvolutionStore::complete(const Reminder& task, Timestamp at, std::function<void(bool)> done) {
    start();
    worker_->invoke([worker = worker_.get(), task, at, done = std::move(done)]() mutable {
        postToMain([owner = worker->owner, done = std::move(done), written = worker->complete(task, at)] {
            if (owner && done) {
                done(written);
            }
        });
    });
}

} // namespace mirrowisp
