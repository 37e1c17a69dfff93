#include "agents/TranscriptReader.h"

#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace mirrowisp;
using namespace Qt::StringLiterals;

namespace {

QByteArray assistant(const char* content) {
    return QByteArray(R"({"type":"assistant","message":{"role":"assistant","content":)") + content + "}}";
}

QByteArray user(const char* content, const char* flags = "") {
    return QByteArray(R"({"type":"user",)") + flags + R"("message":{"role":"user","content":)" + content +
           "}}";
}

QByteArray systemRecord(const char* subtype) {
    return QByteArray(R"({"type":"system","subtype":")") + subtype + R"("})";
}

QByteArray codex(const char* payload) {
    return QByteArray(R"({"timestamp":"2025-01-01T00:00:00Z","type":"event_msg","payload":)") + payload + "}";
}

// Records that decide nothing for any question, a kilobyte each, to push others out of a tail.
QByteArray filler(qint64 bytes) {
    const QByteArray line = R"({"type":"progress","data":")" + QByteArray(1000, 'f') + "\"}\n";
    return line.repeated(static_cast<qsizetype>(bytes / line.size() + 1));
}

// Bytes this process has read through system calls so far.
qint64 bytesReadSoFar() {
    QFile io(u"/proc/self/io"_s);
    const QList<QByteArray> lines =
        io.open(QIODevice::ReadOnly) ? io.readAll().split('\n') : QList<QByteArray>();
    for (const QByteArray& line : lines) {
        if (line.startsWith("rchar:")) {
            return line.mid(6).trimmed().toLongLong();
        }
    }
    return -1;
}

class TranscriptReaderTest : public testing::Test {
protected:
    QString write(const QByteArray& contents) {
        const QString path = dir_.filePath(u"t%1.jsonl"_s.arg(++files_));
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(contents);
        return path;
    }

    QString lines(const QList<QByteArray>& records, const char* ending = "\n") {
        return write(records.isEmpty() ? QByteArray() : records.join(ending) + ending);
    }

    QString path(const char* name) const { return dir_.filePath(QString::fromLatin1(name)); }

private:
    QTemporaryDir dir_;
    int files_ = 0;
};

} // namespace

TEST_F(TranscriptReaderTest, TailObjectsReadWholeLinesOnly) {
    const QString small = lines({R"({"n":1})", R"({"n":2})", R"({"n":3})"});
    const QList<QJsonObject> all = TranscriptReader::tailObjects(small, 65536);
    ASSERT_EQ(all.size(), 3);
    EXPECT_EQ(all.first().value(u"n"_s).toInt(), 1);
    EXPECT_EQ(all.last().value(u"n"_s).toInt(), 3);
    // A tail of exactly the file's size began at its start; one byte less began inside the first line.
    const qint64 size = QFile(small).size();
    EXPECT_EQ(TranscriptReader::tailObjects(small, size).size(), 3);
    EXPECT_EQ(TranscriptReader::tailObjects(small, size - 1).size(), 2);

    // The end of a line cut by the tail's start happens to be an object of its own.
    const QByteArray fake = R"({"fake":true})";
    const QString cut = write(R"({"pad":1})" + fake + "\n" + R"({"real":true})" + "\n");
    const QList<QJsonObject> tail = TranscriptReader::tailObjects(cut, fake.size() + 1 + 13 + 1);
    ASSERT_EQ(tail.size(), 1);
    EXPECT_TRUE(tail.first().value(u"real"_s).toBool());

    const QString mixed =
        write(QByteArray("[1,2]\n\n42\n\"text\"\nnull\n{broken\n{\"ok\":1}\r\n") +
              QByteArray("\xff\xfe\x00\x01\n", 5) + R"({"ok":2}   )" + "\n" + R"({"ok":3})");
    const QList<QJsonObject> objects = TranscriptReader::tailObjects(mixed, 4096);
    ASSERT_EQ(objects.size(), 3);
    EXPECT_EQ(objects.at(2).value(u"ok"_s).toInt(), 3); // no final line feed
}

TEST_F(TranscriptReaderTest, UnreadableSourcesGiveNothing) {
    QByteArray noise(300 * 1024, '\0');
    QRandomGenerator random(7);
    for (char& byte : noise) {
        byte = static_cast<char>(random.bounded(256));
    }
    const QString folder = path("folder");
    ASSERT_TRUE(QDir().mkdir(folder));
    // A FIFO without a writer would block a plain open forever.
    const QString fifo = path("fifo");
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);

    for (const QString& source : {path("missing.jsonl"), QString(), folder, fifo, write(noise)}) {
        EXPECT_TRUE(TranscriptReader::tailObjects(source, 262144).isEmpty());
        EXPECT_FALSE(TranscriptReader::lastAssistantMessage(source, AgentKind::claude).has_value());
        EXPECT_FALSE(TranscriptReader::lastUserPrompt(source, AgentKind::codex).has_value());
        EXPECT_FALSE(TranscriptReader::turnIsOver(source, AgentKind::claude));
    }
    EXPECT_TRUE(TranscriptReader::tailObjects(lines({R"({"n":1})"}), 0).isEmpty());
}

TEST_F(TranscriptReaderTest, AHugeFileCostsOnlyItsTail) {
    const QString file = path("huge.jsonl");
    {
        QFile huge(file);
        ASSERT_TRUE(huge.open(QIODevice::WriteOnly));
        ASSERT_TRUE(huge.resize(qint64(1) << 30)); // sparse: no disk space is used
        ASSERT_TRUE(huge.seek(huge.size()));
        huge.write("\n" + assistant(R"("All done.")") + "\n" + systemRecord("turn_duration") + "\n");
    }
    const qint64 before = bytesReadSoFar();
    ASSERT_GE(before, 0);
    EXPECT_TRUE(TranscriptReader::turnIsOver(file, AgentKind::claude));
    EXPECT_EQ(TranscriptReader::lastAssistantMessage(file, AgentKind::claude), u"All done."_s);
    EXPECT_EQ(TranscriptReader::tailObjects(file, 1024).size(), 2);
    EXPECT_LT(bytesReadSoFar() - before,
              TranscriptReader::turnIsOverBytes + TranscriptReader::lastAssistantMessageBytes + 65536);
}

TEST_F(TranscriptReaderTest, TurnIsOverAtTheLastDecidingRecord) {
    const auto over = [&](const QList<QByteArray>& records, AgentKind agent) {
        return TranscriptReader::turnIsOver(lines(records), agent);
    };
    const AgentKind claude = AgentKind::claude;
    EXPECT_TRUE(over({user(R"("go")"), assistant(R"("ok")"), systemRecord("turn_duration")}, claude));
    EXPECT_TRUE(over({assistant(R"("ok")"), systemRecord("stop_hook_summary")}, claude));
    EXPECT_TRUE(over({systemRecord("turn_duration"), systemRecord("local_command"), R"({"type":"summary"})",
                      R"({"type":"system","subtype":7})", R"({"no":"type"})"},
                     claude));
    EXPECT_FALSE(over({systemRecord("turn_duration"), user(R"("next")")}, claude));
    EXPECT_FALSE(
        over({systemRecord("turn_duration"), assistant(R"([{"type":"tool_use","name":"Bash"}])")}, claude));
    EXPECT_FALSE(over({R"({"type":"summary"})", systemRecord("compact_boundary")}, claude));
    EXPECT_FALSE(over({}, claude));
    EXPECT_TRUE(over({systemRecord("turn_duration")}, AgentKind::opencode)); // others read as Claude

    const AgentKind codexAgent = AgentKind::codex;
    EXPECT_TRUE(
        over({codex(R"({"type":"task_started"})"), codex(R"({"type":"task_complete"})")}, codexAgent));
    EXPECT_TRUE(over({codex(R"({"type":"turn_aborted"})"), codex(R"({"type":"token_count"})"),
                      R"({"type":"response_item","payload":"not an object"})", R"({"payload":{"type":5}})"},
                     codexAgent));
    EXPECT_FALSE(over({codex(R"({"type":"task_complete"})"), codex(R"({"type":"task_started"})"),
                       codex(R"({"type":"agent_message","message":"x"})")},
                      codexAgent));
    EXPECT_FALSE(over({systemRecord("turn_duration")}, codexAgent));
    EXPECT_FALSE(over({codex(R"({"type":"task_complete"})")}, AgentKind::gemini));

    const QString far =
        write(systemRecord("turn_duration") + "\n" + filler(TranscriptReader::turnIsOverBytes));
    EXPECT_FALSE(TranscriptReader::turnIsOver(far, claude));
    EXPECT_TRUE(TranscriptReader::turnIsOver(TranscriptReader::tailObjects(far, 1 << 20), claude));
}

TEST_F(TranscriptReaderTest, LastAssistantMessageIsTheLastTextCondensed) {
    const auto message = [&](const QList<QByteArray>& records, AgentKind agent) {
        return TranscriptReader::lastAssistantMessage(lines(records), agent);
    };
    const AgentKind claude = AgentKind::claude;
    EXPECT_EQ(
        message({assistant(R"("first")"), assistant(R"("**Done.**\n\n- all [tests](t) pass")")}, claude),
        u"Done. all tests pass"_s);
    EXPECT_EQ(message({assistant(R"([{"type":"text","text":"one"},{"type":"tool_use","text":"no"},)"
                                 R"({"type":"text","text":"two"}])")},
                      AgentKind::copilot),
              u"one two"_s);
    // Tool calls alone, empty or blank text and wrong types walk on to the record before.
    EXPECT_EQ(
        message({assistant(R"("answer")"), assistant(R"([{"type":"tool_use","name":"Read","input":{}}])"),
                 assistant(R"("")"), assistant(R"([{"type":"text","text":"  \n "}])"), assistant("7"),
                 assistant(R"([{"type":"text","text":3},"text",null])"),
                 R"({"type":"assistant","message":"x"})", user(R"("later prompt")"),
                 systemRecord("turn_duration")},
                claude),
        u"answer"_s);
    EXPECT_EQ(
        message({user(R"("only a prompt")"), codex(R"({"type":"agent_message","message":"x"})")}, claude),
        std::nullopt);

    const AgentKind codexAgent = AgentKind::codex;
    EXPECT_EQ(message({codex(R"({"type":"agent_message","message":"working"})"),
                       codex(R"({"type":"task_complete","last_agent_message":"`Finished` it"})")},
                      codexAgent),
              u"Finished it"_s);
    EXPECT_EQ(message({codex(R"({"type":"agent_message","message":"from the message"})"),
                       codex(R"({"type":"task_complete","last_agent_message":""})"),
                       codex(R"({"type":"task_complete","last_agent_message":null})"),
                       codex(R"({"type":"agent_message","message":["x"]})"), assistant(R"("claude shape")")},
                      codexAgent),
              u"from the message"_s);

    const QByteArray old = assistant(R"("long ago")") + "\n";
    const qint64 tail = TranscriptReader::lastAssistantMessageBytes;
    EXPECT_EQ(TranscriptReader::lastAssistantMessage(write(old + filler(tail)), claude), std::nullopt);
    EXPECT_EQ(TranscriptReader::lastAssistantMessage(write(old + filler(tail / 2)), claude), u"long ago"_s);
}

TEST_F(TranscriptReaderTest, LastUserPromptIsWhatTheUserTyped) {
    const auto prompt = [&](const QList<QByteArray>& records, AgentKind agent) {
        return TranscriptReader::lastUserPrompt(lines(records, "\r\n"), agent);
    };
    const AgentKind claude = AgentKind::claude;
    EXPECT_EQ(
        prompt({user(R"("old")"), user(R"("fix the **build**\nplease")"), assistant(R"("sure")")}, claude),
        u"fix the build please"_s);
    EXPECT_EQ(
        prompt({user(R"([{"type":"text","text":"look at"},{"type":"image"},{"type":"text","text":"this"}])")},
               AgentKind::amp),
        u"look at this"_s);
    // Tool results, meta records, compact summaries, reminders and stop-hook records aren't prompts.
    EXPECT_EQ(prompt({user(R"("the real one")"),
                      user(R"("This session is being continued")", R"("isCompactSummary":true,)"),
                      user(R"("<system-reminder>be careful</system-reminder>")"),
                      user(R"("Caveat: generated")", R"("isMeta":true,)"),
                      user(R"([{"type":"tool_result","content":"output"}])"),
                      R"({"type":"user","subtype":"stop_hook_summary","message":{"content":"hook said"}})",
                      systemRecord("stop_hook_summary"), assistant(R"("answer")")},
                     claude),
              u"the real one"_s);
    EXPECT_EQ(prompt({user(R"("flagged oddly")", R"("isMeta":"true","isCompactSummary":1,)")}, claude),
              u"flagged oddly"_s);
    EXPECT_EQ(prompt({user(R"("<pasted_content>log</pasted_content> why?")")}, claude),
              u"[Pasted text] why?"_s); // read as a preview

    const AgentKind codexAgent = AgentKind::codex;
    EXPECT_EQ(
        prompt(
            {codex(R"({"type":"user_message","message":"typed   this"})"),
             codex(R"({"type":"user_message","message":"<environment_context>cwd</environment_context>"})"),
             codex(R"({"type":"user_message","message":{"text":"x"}})"),
             codex(R"({"type":"agent_message","message":"reply"})"), user(R"("claude shape")")},
            codexAgent),
        u"typed this"_s);
    EXPECT_EQ(prompt({codex(R"({"type":"user_message","message":"codex shape"})")}, claude), std::nullopt);

    // Beyond the tail nothing is found; a wider tail read by the caller finds it.
    const QString far =
        write(user(R"("wide prompt")") + "\n" + filler(TranscriptReader::lastUserPromptBytes));
    EXPECT_EQ(TranscriptReader::lastUserPrompt(far, claude), std::nullopt);
    EXPECT_EQ(TranscriptReader::lastUserPrompt(TranscriptReader::tailObjects(far, 4 << 20), claude),
              u"wide prompt"_s);
}
