// SPDX-License-Identifier: MIT
// vmworkflow run and running as real processes: the tool starts the real host application, which
// runs the sample plug-in, and the test watches both through their output and the registry.

#include "FileFixtures.h"
#include "TestEnvironment.h"
#include "ToolProcess.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QtTest>

#include <csignal>
#include <sys/types.h>

using namespace VmWorkflowTest;

namespace {

const QString kRunnable = QStringLiteral("Id_QuarterlyExport_{0a9b8c7d-6e5f-4a3b-9c2d-1e0f9a8b7c6d}");
// Needs the product delta of 2015, which the sample data does not install.
const QString kNeedsMissingProduct = QStringLiteral("Id_LegacyImportTemplate");

QString Tool()
{
    return QStringLiteral(VMWF_TOOL);
}

QStringList RunArguments(const QString& id, const QStringList& extra)
{
    return QStringList{QStringLiteral("run"), id} + extra;
}

QStringList Set(const QString& key, const QString& value)
{
    return {QStringLiteral("--set"), key + QLatin1Char('=') + value};
}

QJsonArray Running()
{
    const ToolRun run = RunTool(Tool(), {QStringLiteral("running"), QStringLiteral("--json")});
    return run.status == 0 ? QJsonDocument::fromJson(run.out).array() : QJsonArray();
}

// Waits until `running` lists an entry launched by that process; its description, or empty.
QJsonObject WaitForRunOf(qint64 launcher, int milliseconds)
{
    const QDeadlineTimer deadline(milliseconds);
    while (!deadline.hasExpired())
    {
        for (const QJsonValue& row : Running())
        {
            if (row.toObject().value(QStringLiteral("launcherProcessId")).toInteger() == launcher)
                return row.toObject();
        }
        QThread::msleep(100);
    }
    return QJsonObject();
}

// Waits until no run of this user is left, so that one test's host does not leak into the next.
bool WaitForNoRun(int milliseconds)
{
    const QDeadlineTimer deadline(milliseconds);
    while (!deadline.hasExpired())
    {
        if (Running().isEmpty())
            return true;
        QThread::msleep(100);
    }
    return false;
}

// The copies of launched workflows that the library wrote to a temporary folder.
QStringList LaunchCopies(const QString& folder)
{
    return QDir(folder).entryList({QStringLiteral("Temp_*.workflow")}, QDir::Files, QDir::Name);
}

bool ProcessExists(qint64 pid)
{
    return pid > 0 && QFileInfo::exists(QStringLiteral("/proc/%1").arg(pid));
}

} // namespace

class tst_VmWorkflowRun : public QObject
{
    Q_OBJECT
private:
    TestEnvironment m_env;

    QString ResultFile(const char* name) const
    {
        return m_env.Root() + QLatin1Char('/') + QLatin1String(name);
    }

private slots:
    void initTestCase() { QVERIFY(m_env.Setup()); }
    void cleanup() { QVERIFY(WaitForNoRun(20000)); }

    void runningIsEmptyWithNothingRunning()
    {
        const ToolRun plain = RunTool(Tool(), {QStringLiteral("running")});
        QCOMPARE(plain.status, 0);
        QCOMPARE(plain.out, QByteArray("0 running workflows\n"));
        const ToolRun json = RunTool(Tool(), {QStringLiteral("running"), QStringLiteral("--json")});
        QCOMPARE(json.status, 0);
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(json.out, &error);
        QCOMPARE(error.error, QJsonParseError::NoError);
        QVERIFY(document.isArray());
        QVERIFY(document.array().isEmpty());
    }

    void waitFollowsTheRunToItsEnd()
    {
        const QString result = ResultFile("wait.txt");
        const QStringList copiesBefore = LaunchCopies(m_env.TempDir());
        const ToolRun run =
            RunTool(Tool(), RunArguments(kRunnable, QStringList{QStringLiteral("--wait")} +
                                                        Set(QStringLiteral("ResultFile"), result)));
        QCOMPARE(run.status, 0);
        QVERIFY(run.err.isEmpty());
        const QStringList lines = QString::fromUtf8(run.out).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 2);
        const QRegularExpression beginning(
            QStringLiteral("^beginning (.+) in host process (\\d+) \\(launched by "
                           "process (\\d+)\\)$"));
        const QRegularExpressionMatch begun = beginning.match(lines.at(0));
        QVERIFY2(begun.hasMatch(), qPrintable(lines.at(0)));
        QCOMPARE(begun.captured(1), kRunnable);
        const QString host = begun.captured(2);
        QVERIFY(host.toInt() > 0);
        QCOMPARE(lines.at(1),
                 QStringLiteral("finished %1 in host process %2 with status 0").arg(kRunnable, host));
        // The plug-in really ran, in the host, with the launch arguments.
        QFile file(result);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray written = file.readAll();
        QVERIFY(written.contains("Prepared True"));
        QVERIFY(!written.isEmpty());
        // The copy of the workflow that the launch leaves behind lies in the test's own temporary
        // folder, which goes with the test, and not in the machine's, where it would stay for ever.
        QStringList copies = LaunchCopies(m_env.TempDir());
        for (const QString& known : copiesBefore)
            copies.removeOne(known);
        QCOMPARE(copies.size(), 1);
        QVERIFY2(copies.first().startsWith(QStringLiteral("Temp_Quarterly export_{")),
                 qPrintable(copies.first()));
        QVERIFY(ReadFile(m_env.TempDir() + QLatin1Char('/') + copies.first()).contains(kRunnable.toUtf8()));
    }

    void waitExitsWithTheRunsStatus_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("printed");
        QTest::newRow("status 1, own message")
            << 1 << QStringLiteral("Nothing to export") << QStringLiteral("Nothing to export");
        QTest::newRow("status 3, default message")
            << 3 << QString() << QStringLiteral("The run was asked to end with status 3.");
        QTest::newRow("status 42") << 42 << QStringLiteral("Quota reached")
                                   << QStringLiteral("Quota reached");
    }
    void waitExitsWithTheRunsStatus()
    {
        QFETCH(int, status);
        QFETCH(QString, message);
        QFETCH(QString, printed);
        QStringList extra{QStringLiteral("--wait")};
        extra << Set(QStringLiteral("ExitStatus"), QString::number(status));
        if (!message.isEmpty())
            extra << Set(QStringLiteral("ExitMessage"), message);
        const ToolRun run = RunTool(Tool(), RunArguments(kRunnable, extra));
        QVERIFY2(run.status == status, run.err.constData());
        QVERIFY2(run.out.contains(QStringLiteral("with status %1: %2\n").arg(status).arg(printed).toUtf8()),
                 run.out.constData());
    }

    void jsonDescribesTheRunAndItsEvents()
    {
        const ToolRun run = RunTool(
            Tool(), RunArguments(kRunnable, QStringList{QStringLiteral("--wait"), QStringLiteral("--json")} +
                                                Set(QStringLiteral("ExitStatus"), QStringLiteral("5")) +
                                                Set(QStringLiteral("ExitMessage"), QStringLiteral("five"))));
        QVERIFY2(run.status == 5, run.err.constData());
        QJsonParseError error;
        const QJsonObject object = QJsonDocument::fromJson(run.out, &error).object();
        QCOMPARE(error.error, QJsonParseError::NoError);
        QCOMPARE(object.value(QStringLiteral("workflowId")).toString(), kRunnable);
        QCOMPARE(object.value(QStringLiteral("exitStatus")).toInt(), 5);
        QCOMPARE(object.value(QStringLiteral("message")).toString(), QStringLiteral("five"));
        const int host = object.value(QStringLiteral("hostProcessId")).toInt();
        QVERIFY(host > 0);
        QVERIFY(object.value(QStringLiteral("launcherProcessId")).toInt() > 0);
        QVERIFY(host != object.value(QStringLiteral("launcherProcessId")).toInt());
        const QJsonArray events = object.value(QStringLiteral("events")).toArray();
        QCOMPARE(events.size(), 2);
        QCOMPARE(events.at(0).toObject().value(QStringLiteral("event")).toString(),
                 QStringLiteral("beginning"));
        QCOMPARE(events.at(1).toObject().value(QStringLiteral("event")).toString(),
                 QStringLiteral("finished"));
        QCOMPARE(events.at(1).toObject().value(QStringLiteral("status")).toInt(), 5);
        QCOMPARE(events.at(1).toObject().value(QStringLiteral("hostProcessId")).toInt(), host);
    }

    void withoutWaitPrintsTheHostAndReturns()
    {
        const QString result = ResultFile("nowait.txt");
        const ToolRun run =
            RunTool(Tool(), RunArguments(kRunnable, Set(QStringLiteral("DelayMs"), QStringLiteral("3000")) +
                                                        Set(QStringLiteral("ResultFile"), result)));
        QCOMPARE(run.status, 0);
        const QRegularExpression started(QStringLiteral("^started (.+) in host process (\\d+)\n$"));
        const QRegularExpressionMatch match = started.match(QString::fromUtf8(run.out));
        QVERIFY2(match.hasMatch(), run.out.constData());
        QCOMPARE(match.captured(1), kRunnable);
        // The tool came back while the run goes on in the host.
        const qint64 host = match.captured(2).toLongLong();
        QVERIFY(ProcessExists(host));
        const QJsonArray rows = Running();
        QCOMPARE(rows.size(), 1);
        const QJsonObject row = rows.at(0).toObject();
        QCOMPARE(row.value(QStringLiteral("workflowId")).toString(), kRunnable);
        QCOMPARE(row.value(QStringLiteral("hostProcessId")).toInteger(), host);
        QCOMPARE(row.value(QStringLiteral("status")).toInt(), 0);
        QVERIFY(!row.value(QStringLiteral("finished")).toBool());
        const ToolRun plain = RunTool(Tool(), {QStringLiteral("running")});
        QVERIFY(
            plain.out.startsWith(QStringLiteral("%1  host %2  launcher ").arg(kRunnable).arg(host).toUtf8()));
        QVERIFY(plain.out.endsWith("1 running workflow\n"));
    }

    void refusalsSayWhichRuleRefused_data()
    {
        QTest::addColumn<QString>("id");
        QTest::addColumn<QByteArray>("sentence");
        QTest::newRow("unknown id") << QStringLiteral("Id_Nobody")
                                    << QByteArray("no workflow has the id \"Id_Nobody\".");
        QTest::newRow("missing product")
            << kNeedsMissingProduct << QByteArray("cannot run here because a required product is missing.");
    }
    void refusalsSayWhichRuleRefused()
    {
        QFETCH(QString, id);
        QFETCH(QByteArray, sentence);
        const ToolRun run = RunTool(Tool(), RunArguments(id, {QStringLiteral("--wait")}));
        QCOMPARE(run.status, 1);
        QVERIFY(run.out.isEmpty());
        QCOMPARE(run.err.count('\n'), 1);
        QVERIFY2(run.err.startsWith("vmworkflow: ") && run.err.contains(sentence), run.err.constData());
        QVERIFY(Running().isEmpty());
    }

    void refusedWhenTheHostIsNotInstalled()
    {
        // A copy of the tool in a folder of its own has no host application manifest beside it.
        const QString folder = m_env.Root() + QStringLiteral("/nohost");
        QVERIFY(QDir().mkpath(folder + QStringLiteral("/bin")));
        const QString copy = folder + QStringLiteral("/bin/vmworkflow");
        QVERIFY(QFile::copy(Tool(), copy));
        // The product catalogue travels with the tool, so that the host is the one thing missing.
        QVERIFY(QFile::copy(QFileInfo(Tool()).absolutePath() + QStringLiteral("/Products.xml"),
                            folder + QStringLiteral("/bin/Products.xml")));
        QVERIFY(QFile::link(QStringLiteral(VMWF_LIBRARY_DIR), folder + QStringLiteral("/lib")));
        const QString samples = QStringLiteral(VMWF_SHARE_DIR) + QStringLiteral("/workflows");
        // The sample products stay installed.
        const QByteArray applications = qgetenv("VELMORA_APPLICATIONS_PATH");
        qputenv("VELMORA_APPLICATIONS_PATH",
                QFile::encodeName(QStringLiteral(VMWF_SHARE_DIR) + QStringLiteral("/applications")));
        const ToolRun run =
            RunTool(copy, {QStringLiteral("--search-paths"),
                           samples + QStringLiteral("/templates;") + samples + QStringLiteral("/user"),
                           QStringLiteral("run"), kRunnable, QStringLiteral("--wait")});
        if (applications.isNull())
            qunsetenv("VELMORA_APPLICATIONS_PATH");
        else
            qputenv("VELMORA_APPLICATIONS_PATH", applications);
        QCOMPARE(run.status, 1);
        QVERIFY2(run.err.contains("the host application VmWorkflowHost is not installed."),
                 run.err.constData());
        QCOMPARE(run.err.count('\n'), 1);
        QVERIFY(Running().isEmpty());
    }

    void aSecondRunOfAnotherProcessGoesAhead()
    {
        // The launcher only refuses a second run of its own process; another process launches freely.
        QProcess first;
        first.start(Tool(),
                    RunArguments(kRunnable, QStringList{QStringLiteral("--wait")} +
                                                Set(QStringLiteral("DelayMs"), QStringLiteral("4000"))));
        QVERIFY(first.waitForStarted());
        const QJsonObject firstRun = WaitForRunOf(first.processId(), 20000);
        QVERIFY2(!firstRun.isEmpty(), "the first run never showed up in the registry");

        const ToolRun second = RunTool(
            Tool(), RunArguments(kRunnable, QStringList{QStringLiteral("--wait")} +
                                                Set(QStringLiteral("ExitStatus"), QStringLiteral("6"))));
        QCOMPARE(second.status, 6);
        // The first run is still going on: both hosts were running at once.
        QVERIFY(first.state() == QProcess::Running);
        QVERIFY(!second.out.contains(
            QString::number(firstRun.value(QStringLiteral("hostProcessId")).toInt()).toUtf8() +
            " with status"));

        QVERIFY(first.waitForFinished(30000));
        QCOMPARE(first.exitStatus(), QProcess::NormalExit);
        QCOMPARE(first.exitCode(), 0);
        QVERIFY(first.readAllStandardOutput().contains("with status 0"));
    }

    void aKilledHostEndsTheWaitWithAFailure()
    {
        QProcess tool;
        tool.start(Tool(),
                   RunArguments(kRunnable, QStringList{QStringLiteral("--wait")} +
                                               Set(QStringLiteral("DelayMs"), QStringLiteral("60000"))));
        QVERIFY(tool.waitForStarted());
        const QJsonObject run = WaitForRunOf(tool.processId(), 20000);
        QVERIFY2(!run.isEmpty(), "the run never showed up in the registry");
        const qint64 host = run.value(QStringLiteral("hostProcessId")).toInteger();
        QVERIFY(ProcessExists(host));
        QCOMPARE(::kill(pid_t(host), SIGKILL), 0);

        // The tool notices the vanished host on its own and says so, well before the run's delay.
        QVERIFY2(tool.waitForFinished(20000), "the tool kept waiting for a host that was gone");
        QCOMPARE(tool.exitStatus(), QProcess::NormalExit);
        QVERIFY(tool.exitCode() != 0);
        const QByteArray err = tool.readAllStandardError();
        QVERIFY2(
            err.contains(QStringLiteral("the host process %1 ended without reporting the end of the run.")
                             .arg(host)
                             .toUtf8()),
            err.constData());
        QVERIFY(Running().isEmpty());
    }

    void badRunCommandLinesGiveStatusTwo_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("run without id") << QStringList{QStringLiteral("run")};
        QTest::newRow("run with two ids")
            << QStringList{QStringLiteral("run"), kRunnable, QStringLiteral("more")};
        QTest::newRow("launch point not a number") << QStringList{
            QStringLiteral("run"), kRunnable, QStringLiteral("--launch-point"), QStringLiteral("ribbon")};
        QTest::newRow("set without value") << QStringList{
            QStringLiteral("run"), kRunnable, QStringLiteral("--set"), QStringLiteral("ResultFile")};
        QTest::newRow("wait on list") << QStringList{QStringLiteral("list"), QStringLiteral("--wait")};
        QTest::newRow("running with argument")
            << QStringList{QStringLiteral("running"), QStringLiteral("now")};
    }
    void badRunCommandLinesGiveStatusTwo()
    {
        QFETCH(QStringList, arguments);
        const ToolRun run = RunTool(Tool(), arguments);
        QCOMPARE(run.status, 2);
        QCOMPARE(run.err.count('\n'), 1);
        QVERIFY(run.err.startsWith("vmworkflow: "));
        QVERIFY(Running().isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_VmWorkflowRun)
#include "tst_vmworkflowrun.moc"
