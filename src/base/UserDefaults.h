#pragma once

#include "base/Clock.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <functional>
#include <memory>
#include <optional>

namespace mirrowisp {

class SerialQueue;

// The user's settings and the app's small persistent state: one human-readable JSON object in
// $XDG_CONFIG_HOME/mirrowisp/defaults.json.
//
// Two domains answer a read: the user's own values (the file) and, below them, the registration
// domain the app fills at start-up, which is never written. A user value hides the registered one
// even when its type is wrong; typed reads then answer nothing and the caller falls back on its own
// default. Dates are stored as seconds since the epoch (a number), read with doubleValue.
//
// The file is read once, at construction; from then on the copy in memory is the truth. By default
// every change is written through at once, atomically, so a change is on disk before set() returns;
// the app coalesces writes instead (coalesceWrites). A file that can't be read as a JSON object is
// treated as empty, and is copied aside before the first write replaces it. Used on the main thread
// only; only the file writes happen elsewhere.
class UserDefaults : public QObject {
    Q_OBJECT

public:
    // The store at defaultFilePath(), evaluated now.
    explicit UserDefaults(QObject* parent = nullptr);
    explicit UserDefaults(QString filePath, QObject* parent = nullptr);
    // Writes what is pending and waits for it.
    ~UserDefaults() override;

    // The app's store, made on first use.
    static UserDefaults& standard();
    // $XDG_CONFIG_HOME when it is an absolute path, else ~/.config.
    static QString configHome();
    static QString defaultFilePath();

    QString filePath() const { return filePath_; }

    // Adds to the registration domain; a key registered again takes the newer value.
    void registerDefaults(const QJsonObject& defaults);
    void registerDefaults(const QVariantMap& defaults);
    QJsonObject registeredDefaults() const { return registered_; }

    // The user's value, else the registered one.
    std::optional<QJsonValue> object(const QString& key) const;
    // Whether the user domain holds the key; the registration domain doesn't count.
    bool contains(const QString& key) const { return values_.contains(key); }
    QStringList keys() const { return values_.keys(); }

    std::optional<bool> boolValue(const QString& key) const;
    std::optional<double> doubleValue(const QString& key) const;
    std::optional<QString> stringValue(const QString& key) const;
    // Only an array whose every element is a string.
    std::optional<QStringList> stringArray(const QString& key) const;
    std::optional<QJsonObject> dictionary(const QString& key) const;

    // Stores a user value and writes the file. A null or undefined value removes the key.
    void set(const QString& key, const QJsonValue& value);
    void remove(const QString& key);

    // Changes made together, such as the eight agent switches, are written once when the outermost
    // batch ends rather than once each: every write syncs the file to disk, some milliseconds apiece.
    // Reads and signals are not held back.
    class Batch {
    public:
        explicit Batch(UserDefaults& defaults) : defaults_(defaults) { ++defaults_.batchDepth_; }
        ~Batch();
        Batch(const Batch&) = delete;
        Batch& operator=(const Batch&) = delete;

    private:
        UserDefaults& defaults_;
    };

    // Runs `work` on this thread after `seconds`.
    using Scheduler = std::function<void(double seconds, std::function<void()> work)>;
    // From now on changes are written at most once per `interval` seconds (a change after a quiet
    // interval at once, later ones together at its end), on a thread of the store's own: a burst of
    // changes, such as a prompt counted per hook, costs one write a second and never makes the caller
    // wait on the disk. `schedule` defaults to a timer on this object.
    void coalesceWrites(const Clock& clock, Scheduler schedule = {}, double interval = 1.0);
    // Writes any pending change now and waits until every write has reached the disk; at quit.
    void flush();

Q_SIGNALS:
    // The value that object(key) answers has changed.
    void changed(const QString& key);

private:
    struct Writer;

    void load();
    void persist();
    void write();
    void startWrite();

    QString filePath_;
    QJsonObject values_;
    QJsonObject registered_;
    // The file's side, used by one thread at a time: the caller's, or the queue's once writes coalesce.
    std::shared_ptr<Writer> writer_;
    int batchDepth_ = 0;
    bool writeHeldBack_ = false;

    // Coalesced writes only.
    const Clock* clock_ = nullptr;
    Scheduler schedule_;
    double interval_ = 1.0;
    std::optional<Timestamp> lastWrite_;
    bool dirty_ = false;
    bool writeScheduled_ = false;
    std::unique_ptr<SerialQueue> queue_;
};

} // namespace mirrowisp
