#pragma once

#include "agents/DecisionRecord.h"
#include "base/SerialQueue.h"

#include <QString>
#include <QStringList>
#include <memory>

namespace mirrowisp {

// The record of ended decisions: JSON lines in the support directory, one append per record, written
// on a thread of its own so the main thread only hands a record over. Past `maxBytes` the file moves
// to decisions.jsonl.1 (older ones one number up) and `keptFiles` files are kept in all. A log that
// cannot be written costs nothing but one log line saying why; decisions go on as before.
class DecisionLog {
public:
    static constexpr qint64 defaultMaxBytes = 10 * 1024 * 1024;
    static constexpr int defaultKeptFiles = 5;
    struct Limits {
        qint64 maxBytes = defaultMaxBytes;
        int keptFiles = defaultKeptFiles;
    };

    explicit DecisionLog(QString directory);
    DecisionLog(QString directory, Limits limits);
    ~DecisionLog();
    DecisionLog(const DecisionLog&) = delete;
    DecisionLog& operator=(const DecisionLog&) = delete;

    void append(DecisionRecord record);
    // Waits until every record handed over so far is written (quit, tests).
    void flush();

    const QString& path() const { return path_; }
    static QString path(const QString& directory);
    // The log's files that exist, oldest first.
    static QStringList files(const QString& directory, int keptFiles = defaultKeptFiles);

private:
    void write(const QByteArray& line);
    bool open();
    void rotate();
    void fail(const QString& why);

    const QString directory_;
    const QString path_;
    const Limits limits_;
    // Touched on the queue's thread only.
    int fd_ = -1;
    qint64 size_ = 0;
    bool warned_ = false;
    std::unique_ptr<SerialQueue> queue_;
};

} // namespace mirrowisp
